#include "ui/workspace_fixture.h"

namespace quor::ui {
namespace {

namespace fs = std::filesystem;
using test::oneSplat;
using test::WorkspaceTest;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::StartsWith;

TEST_F(WorkspaceTest, FromDroppedPhotographsToAScene) {
  EXPECT_EQ(workspace_->run().rebuildQuestion(), "");
  open({photos("Garden", 3)});
  NewMedia& form = workspace_->newMedia();
  EXPECT_TRUE(form.visible);
  until([&] { return form.buildButton().enabled; });
  form.create(true);
  until([&] { return workspace_->busy(); });
  const fs::path root = folder_ / "Garden_ombrelux";
  const Notice created = notice();
  EXPECT_EQ(created.title, "Created project");
  EXPECT_THAT(created.lines, ElementsAre("Found 1 sources in " + toUtf8(folder_ / "Garden"),
                                         "Garden: 3 images (subfolders included)", "Project folder: " + toUtf8(root)));
  EXPECT_THAT(preferences_.recentProjects, ElementsAre(toUtf8(root)));

  until([&] { return trainer_.running() || !workspace_->busy(); });
  ASSERT_TRUE(trainer_.running()) << workspace_->run().stages()[1].text;
  until([&] { return !workspace_->view().dataset.empty(); });
  EXPECT_EQ(workspace_->view().dataset, workspace_->project()->solvedFolder());
  gs::TrainStatus status;
  status.state = gs::TrainState::Training;
  status.step = 1250;
  status.iterations = 7000;
  status.splats = 34567;
  status.secondsLeft = 200;
  trainer_.setStatus(status);
  until([&] { return row(Stage::Train).timeLeft == "about 3 min left"; });
  EXPECT_EQ(row(Stage::Train).text, "Step 1,250 of 7,000, 34,567 splats");
  EXPECT_EQ(row(Stage::Frames).text, "3 frames");
  EXPECT_THAT(workspace_->closeQuestion(), StartsWith("Training is at step 1250 of 7000."));

  const uint64_t generation = workspace_->view().generation;
  gs::writePly(workspace_->project()->sceneFile(), oneSplat(), {});
  gs::TrainResult result;
  result.splats = 1;
  trainer_.end(gs::TrainState::Done, result);
  until([&] { return !workspace_->view().scene.empty(); });
  EXPECT_EQ(workspace_->view().scene, workspace_->project()->sceneFile());
  EXPECT_GT(workspace_->view().generation, generation);
  EXPECT_THAT(workspace_->results().facts()->summary,
              ElementsAre("3 frames", "3 images registered", "scene.ply exported"));
  const Notice ready = notice();
  EXPECT_EQ(ready.title, "The scene is ready");
  EXPECT_EQ(ready.folder, root / "output");
  EXPECT_TRUE(workspace_->mayClose());

  // As somebody finds it the next day.
  make();
  open({root});
  EXPECT_EQ(row(Stage::Sparse).state, StageState::Done);
  EXPECT_THAT(workspace_->run().rebuildQuestion(), StartsWith("Frames, cameras and the scene are all made anew"));
  EXPECT_EQ(workspace_->view().scene, root / "output" / "scene.ply");
}

TEST_F(WorkspaceTest, TrainingGoesOnOnlyFromACheckpointThatFits) {
  Project project = solvedProject();
  project.training.continueFromCheckpoint = true;  // as the command line leaves it
  project.save();
  open({project.root});
  EXPECT_FALSE(workspace_->run().hasCheckpoint());
  EXPECT_THAT(workspace_->run().continueButton(1000).hint, HasSubstr("no checkpoint yet"));

  test::writeSmallCheckpoint(project.checkpointFile(), 500);
  open({project.root});
  EXPECT_EQ(workspace_->run().continuationTarget(), 1500);
  EXPECT_EQ(workspace_->run().continueButton(500).hint,
            "The checkpoint is already at step 500. Set more iterations than that to continue training it.");
  workspace_->editProject([](Project& edited) { edited.training.technique = gs::Technique::Mcmc; });
  EXPECT_THAT(workspace_->run().continueButton(1500).hint, StartsWith("The checkpoint was trained with Vanilla;"));
  workspace_->editProject([](Project& edited) { edited.training.technique = gs::Technique::Vanilla; });
  EXPECT_EQ(workspace_->run().continueButton(1500).label, "Continue training from step 500");
  workspace_->run().continueTraining(1500);
  until([&] { return trainer_.running(); });
  EXPECT_TRUE(trainer_.job().resume);
  EXPECT_EQ(trainer_.job().iterations, 1500);
  workspace_->run().stop();
  finishRun();
  EXPECT_EQ(Project::load(project.root).training.iterations, 1500);

  workspace_->run().start(Stage::Train, Stage::Train);
  until([&] { return trainer_.running(); });
  EXPECT_FALSE(trainer_.job().resume);
}

TEST_F(WorkspaceTest, CamerasThatAreNewerThanTheCheckpointAreTrainedFromTheStart) {
  Project project = Project::create({{toUtf8(photos("p", 3)), InputKind::Images}}, {});
  const fs::path model = project.solvedFolder() / "sparse";
  gs::colmap::writeModel(model, test::modelOf({"a.jpg"}), {}, gs::colmap::Encoding::Binary);
  test::writeSmallCheckpoint(project.checkpointFile(), 50);
  fs::last_write_time(model / "images.bin", fs::last_write_time(project.checkpointFile()) + std::chrono::hours(1));
  open({project.root});
  EXPECT_THAT(workspace_->run().continueButton(5000).hint, HasSubstr("solved again after this checkpoint"));
}

TEST_F(WorkspaceTest, AFailedTrainingNamesTheCheckpointThatItLeft) {
  const Project project = solvedProject();
  open({project.root});
  workspace_->run().start(Stage::Train, Stage::Train);
  until([&] { return trainer_.running(); });
  test::writeSmallCheckpoint(project.checkpointFile(), 1200);
  trainer_.end(gs::TrainState::Failed, {}, "Training failed: vkQueueSubmit failed (VkResult -4)", Outcome::DeviceLost);
  until([&] { return !workspace_->notices().empty(); });
  const Notice lost = notice();
  EXPECT_EQ(lost.title, "Train Gaussians failed");
  EXPECT_THAT(lost.lines,
              ElementsAre(StartsWith("Training failed: "), StartsWith("A checkpoint was saved at step 1,200"),
                          HasSubstr("until Ombrelux is started again")));
}

TEST_F(WorkspaceTest, WhileSomethingRunsNothingElseIsOpenedOrStarted) {
  const Project project = solvedProject();
  open({project.root});
  workspace_->run().build();
  until([&] { return trainer_.running(); });
  EXPECT_FALSE(workspace_->run().buildButton().enabled);
  EXPECT_TRUE(workspace_->run().stopButton().enabled);
  const std::string refusal = "Finish or cancel the running stage before opening something else.";
  const std::vector<std::function<void()>> openings = {
      [&] { workspace_->open({folder_.path()}); }, [&] { workspace_->session().importDataset(folder_ / "set", {}); },
      [&] { workspace_->session().close(); }};
  for (const auto& opening : openings) {
    opening();
    EXPECT_THAT(notice().lines, ElementsAre(refusal));
  }
  ASSERT_TRUE(workspace_->project());
  EXPECT_FALSE(workspace_->mayClose());
  workspace_->run().cancel();
  finishRun();
  EXPECT_TRUE(workspace_->mayClose());

  // A run that is begun while something is looked at comes first.
  workspace_->run().build();
  workspace_->open({Project::fromDataset(dataset("other"), {}).root});
  until([&] { return trainer_.running() && !workspace_->loading(); });
  EXPECT_THAT(notice().lines, ElementsAre(refusal));
  EXPECT_EQ(workspace_->project()->root, project.root);
  workspace_->run().cancel();
  finishRun();

  occupied_ = true;
  EXPECT_THAT(workspace_->run().buildButton().hint, HasSubstr("batch"));
  workspace_->open({folder_.path()});
  EXPECT_THAT(notice().lines, ElementsAre(refusal));
}

TEST_F(WorkspaceTest, WithoutColmapTheFramesCanStillBePrepared) {
  const Project project = Project::create({{toUtf8(photos("p", 3)), InputKind::Images}}, {});
  preferences_.colmapPath.clear();
  make();
  open({project.root});
  until([&] { return workspace_->run().colmapMissing(); });
  EXPECT_EQ(workspace_->run().buildButton().hint, kNoColmap);
  EXPECT_EQ(row(Stage::Frames).runFrom.hint, kNoColmap);
  ASSERT_TRUE(row(Stage::Frames).runOnly.enabled);
  EXPECT_FALSE(row(Stage::Sparse).runOnly.enabled);
  workspace_->run().start(Stage::Frames, Stage::Frames);
  until([&] { return row(Stage::Sparse).runOnly.hint == kNoColmap; });  // no longer for want of frames

  preferences_.colmapPath = toUtf8(colmap_.executable());
  workspace_->run().findTools();
  until([&] { return row(Stage::Sparse).runOnly.enabled; });
  colmap_.on("mapper", "echo 'no good initial pair'; exit 1\n");
  workspace_->run().start(Stage::Sparse, Stage::Train);
  until([&] { return !workspace_->notices().empty(); });
  const Notice failed = notice();
  EXPECT_EQ(failed.title, "Sparse reconstruction failed");
  EXPECT_EQ(failed.lines.back(), toUtf8(failed.folder / "colmap.log"));
  EXPECT_THAT(test::readFile(failed.folder / "colmap.log"), HasSubstr("no good initial pair"));
  EXPECT_EQ(row(Stage::Sparse).state, StageState::Failed);
}

}  // namespace
}  // namespace quor::ui
