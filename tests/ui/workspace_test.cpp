#include "ui/models/workspace.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "gs/checkpoint.h"
#include "gs/ply.h"
#include "sfm/fake_colmap.h"
#include "support/fake_trainer.h"
#include "support/temp_folder.h"
#include "ui/pump.h"

namespace quor::ui {
namespace {

namespace fs = std::filesystem;
using test::pump;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::StartsWith;

gs::GaussianSet oneSplat() {
  gs::GaussianSet set;
  set.resize(1);
  set.rotations[0] = 1;
  return set;
}

class WorkspaceTest : public ::testing::Test {
 protected:
  WorkspaceTest() {
    preferences_.colmapPath = toUtf8(colmap_.executable());
    colmap_.mapsTo("0", {"f00001.jpg", "f00002.jpg", "f00003.jpg"});
    make();
  }

  void make() {
    workspace_ = std::make_unique<Workspace>(
        Workspace::Parts{log_,
                         trainer_,
                         preferences_,
                         [this] {
                           return std::make_unique<Pipeline>(trainer_, log_, Tools{find(preferences_.colmapPath), {}});
                         },
                         [this] { return occupied_; },
                         {},
                         {},
                         find});
  }

  // Not one that happens to be installed.
  static std::optional<ToolLocation> find(const std::string& configured) {
    if (configured.empty()) return std::nullopt;
    return findColmap(configured);
  }
  template <class Condition>
  void until(Condition condition) {
    ASSERT_TRUE(pump(*workspace_, condition));
  }
  void open(const std::vector<fs::path>& paths) {
    workspace_->open(paths);
    until([&] { return !workspace_->loading(); });
  }
  void finishRun() {
    until([&] { return !workspace_->busy() && !workspace_->loading(); });
  }
  fs::path photos(const std::string& name, int count, int width = 40) {
    fs::create_directories(folder_ / name);
    for (int i = 0; i < count; ++i) {
      Image image{width, 30, std::vector<uint8_t>(static_cast<size_t>(width * 90), 90)};
      writePng(folder_ / name / ("p" + std::to_string(i) + ".png"), image);
    }
    return folder_ / name;
  }
  fs::path dataset(const std::string& name) {
    const fs::path path = folder_ / name;
    gs::colmap::writeModel(path / "sparse/0", test::modelOf({"a.jpg", "b.jpg"}), {}, gs::colmap::Encoding::Binary);
    fs::create_directories(path / "images");
    return path;
  }
  // A project with two solved cameras, opened.
  Project solvedProject() {
    Project project = Project::fromDataset(dataset("set"), {});
    project.training.iterations = 500;
    project.training.technique = gs::Technique::Vanilla;
    project.save();
    return project;
  }
  void writeCheckpoint(const Project& project, uint32_t step) {
    gs::CheckpointHeader header;
    header.step = step;
    gs::GroupArrays moments;
    for (size_t g = 0; g < gs::kGroupCount; ++g) moments[g].resize(gs::kGroupWidths[g]);
    gs::writeCheckpoint(project.checkpointFile(), header, oneSplat(), moments, moments);
  }
  // The one notice there is, which is taken away.
  Notice notice() {
    EXPECT_EQ(workspace_->notices().size(), 1u);
    Notice notice = workspace_->notices().empty() ? Notice() : workspace_->notices().front();
    workspace_->notices().clear();
    return notice;
  }
  const StageRow row(Stage stage) { return workspace_->stages()[static_cast<size_t>(stage)]; }

  test::TempFolder folder_;
  test::FakeColmap colmap_{folder_ / "tools"};
  Preferences preferences_;
  LogStore log_{1000};
  test::FakeTrainer trainer_;
  bool occupied_ = false;
  std::unique_ptr<Workspace> workspace_;
};

TEST_F(WorkspaceTest, ARefusalSaysWhatToDoAndLeavesWhatIsOpen) {
  const Project project = solvedProject();
  open({project.root});
  ASSERT_TRUE(workspace_->project());
  const uint64_t generation = workspace_->view().generation;

  const fs::path gone = folder_ / "gone";
  preferences_.addRecent(toUtf8(gone));
  open({gone});
  EXPECT_THAT(notice().lines, ElementsAre("No such file or folder:", toUtf8(gone)));
  EXPECT_THAT(preferences_.recentProjects, ElementsAre(toUtf8(project.root)));

  const fs::path text = test::writeFile(folder_ / "notes.txt", "x");
  for (const std::vector<fs::path>& nothing : {std::vector{text}, std::vector{text, text}}) {
    open(nothing);
    EXPECT_THAT(notice().lines,
                ElementsAre("Ombrelux cannot open this. Drop a folder of images, videos, a Ombrelux project, a COLMAP "
                            "dataset or a .ply scene."));
  }
  open({folder_ / "set" / "sparse" / "0"});
  EXPECT_THAT(notice().lines, ElementsAre(HasSubstr("but no images/ beside it. Choose the folder that holds both")));
  open({project.root, photos("a", 1)});
  EXPECT_THAT(notice().lines[0], HasSubstr("can only be opened by itself"));
  open({test::writeFile(folder_ / "broken.ply", "plywood")});
  EXPECT_THAT(notice().lines[0], HasSubstr("broken.ply"));
  open({test::writeFile(folder_ / "torn_ombrelux/project.json", "{").parent_path()});
  EXPECT_THAT(notice().lines[0], HasSubstr("is damaged"));

  ASSERT_TRUE(workspace_->project());
  EXPECT_EQ(workspace_->project()->root, project.root);
  EXPECT_EQ(workspace_->view().generation, generation);
}

TEST_F(WorkspaceTest, FromDroppedPhotographsToAScene) {
  open({photos("Garden", 3)});
  NewMedia& form = workspace_->newMedia();
  EXPECT_TRUE(form.visible);
  until([&] { return form.buildButton().enabled; });
  form.create(true);
  until([&] { return workspace_->busy(); });
  const fs::path root = folder_ / "Garden_ombrelux";
  const Notice created = notice();
  EXPECT_EQ(created.title, "Created project");
  EXPECT_FALSE(created.isError);
  EXPECT_THAT(created.lines, ElementsAre("Found 1 sources in " + toUtf8(folder_ / "Garden"),
                                         "Garden: 3 images (subfolders included)", "Project folder: " + toUtf8(root)));
  EXPECT_FALSE(form.visible);
  EXPECT_THAT(form.sources(), IsEmpty());
  EXPECT_THAT(preferences_.recentProjects, ElementsAre(toUtf8(root)));

  until([&] { return trainer_.running() || !workspace_->busy(); });
  ASSERT_TRUE(trainer_.running()) << workspace_->stages()[1].text;
  until([&] { return !workspace_->view().dataset.empty(); });
  EXPECT_EQ(workspace_->view().dataset, workspace_->project()->solvedFolder());
  EXPECT_EQ(trainer_.job().iterations, 7000);
  EXPECT_EQ(trainer_.job().resolution, 1600);
  gs::TrainStatus status;
  status.state = gs::TrainState::Training;
  status.step = 1250;
  status.iterations = 7000;
  status.splats = 34567;
  status.loss = 0.05F;
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
  EXPECT_THAT(workspace_->notices(), IsEmpty());
  EXPECT_TRUE(workspace_->mayClose());

  // As somebody finds it the next day.
  make();
  open({root});
  EXPECT_EQ(row(Stage::Sparse).state, StageState::Done);
  EXPECT_EQ(row(Stage::Sparse).text, "3 images registered");
  EXPECT_EQ(workspace_->buildButton().label, "Build again");
  EXPECT_EQ(workspace_->view().scene, root / "output" / "scene.ply");
}

TEST_F(WorkspaceTest, NeitherEditsNorTheFrameStagesRecordAreLost) {
  const Project made = Project::create({{toUtf8(photos("many", 24, 900)), InputKind::Images}}, {});
  const auto saved = [&] { return Project::load(made.root); };
  const auto setSteps = [&](int steps) {
    workspace_->editProject([&](Project& project) { project.training.iterations = steps; });
  };
  open({made.root});
  setSteps(111);
  workspace_->start(Stage::Frames, Stage::Frames);  // with an edit that is not saved yet
  until([&] { return workspace_->busy(); });
  setSteps(222);
  workspace_->update();
  if (!workspace_->busy()) GTEST_SKIP() << "the frames were ready before the edit";
  EXPECT_THAT(workspace_->settingsNote(), HasSubstr("goes on with the settings it began with"));
  until([&] { return saved().training.iterations == 222; });
  finishRun();
  EXPECT_EQ(saved().extraction.groups.size(), 1u);
  EXPECT_EQ(workspace_->project()->extraction.groups.size(), 1u);

  setSteps(333);
  workspace_.reset();
  EXPECT_EQ(saved().training.iterations, 333);
  EXPECT_EQ(saved().extraction.groups.size(), 1u);
}

TEST_F(WorkspaceTest, AnEditIsSavedBeforeAnotherProjectIsOpened) {
  const Project first = solvedProject();
  open({first.root});
  workspace_->editProject([](Project& project) { project.training.iterations = 77; });
  open({Project::fromDataset(dataset("other"), {}).root});
  until([&] { return Project::load(first.root).training.iterations == 77; });
  EXPECT_NE(workspace_->project()->training.iterations, 77);

  fs::remove_all(workspace_->project()->root);
  workspace_->editProject([](Project& project) { project.training.iterations = 78; });
  until([&] { return !workspace_->notices().empty(); });
  EXPECT_THAT(notice().title, HasSubstr("settings were not saved"));
}

TEST_F(WorkspaceTest, TrainingGoesOnOnlyFromACheckpointThatFits) {
  Project project = solvedProject();
  project.training.continueFromCheckpoint = true;  // as the command line leaves it
  project.save();
  open({project.root});
  EXPECT_FALSE(workspace_->hasCheckpoint());
  EXPECT_THAT(workspace_->continueButton(1000).hint, HasSubstr("no checkpoint yet"));

  writeCheckpoint(project, 500);
  open({project.root});
  EXPECT_EQ(workspace_->continuationTarget(), 1500);
  EXPECT_EQ(workspace_->continueButton(500).hint,
            "The checkpoint is already at step 500. Set more iterations than that to continue training it.");
  workspace_->editProject([](Project& edited) { edited.training.technique = gs::Technique::Mcmc; });
  EXPECT_THAT(workspace_->continueButton(1500).hint, StartsWith("The checkpoint was trained with Vanilla;"));
  workspace_->editProject([](Project& edited) { edited.training.technique = gs::Technique::Vanilla; });
  EXPECT_EQ(workspace_->continueButton(1500).label, "Continue training from step 500");
  workspace_->continueTraining(1500);
  until([&] { return trainer_.running(); });
  EXPECT_TRUE(trainer_.job().resume);
  EXPECT_EQ(trainer_.job().iterations, 1500);
  workspace_->stopTraining();
  finishRun();
  EXPECT_EQ(Project::load(project.root).training.iterations, 1500);

  workspace_->start(Stage::Train, Stage::Train);
  until([&] { return trainer_.running(); });
  EXPECT_FALSE(trainer_.job().resume);
  workspace_->cancel();
  finishRun();
  EXPECT_THAT(workspace_->notices(), IsEmpty());
  EXPECT_EQ(row(Stage::Train).text, "Cancelled");
}

TEST_F(WorkspaceTest, CamerasThatAreNewerThanTheCheckpointAreTrainedFromTheStart) {
  Project project = Project::create({{toUtf8(photos("p", 3)), InputKind::Images}}, {});
  const fs::path model = project.solvedFolder() / "sparse";
  gs::colmap::writeModel(model, test::modelOf({"a.jpg"}), {}, gs::colmap::Encoding::Binary);
  writeCheckpoint(project, 50);
  fs::last_write_time(model / "images.bin", fs::last_write_time(project.checkpointFile()) + std::chrono::hours(1));
  open({project.root});
  EXPECT_THAT(workspace_->continueButton(5000).hint, HasSubstr("solved again after this checkpoint"));
}

TEST_F(WorkspaceTest, AFailedTrainingNamesTheCheckpointThatItLeft) {
  const Project project = solvedProject();
  open({project.root});
  const auto fail = [&](const std::string& sentence) {
    workspace_->start(Stage::Train, Stage::Train);
    until([&] { return trainer_.running(); });
    if (!sentence.empty()) writeCheckpoint(project, 1200);
    trainer_.end(gs::TrainState::Failed, {}, sentence.empty() ? "The disk is full." : sentence);
    until([&] { return !workspace_->notices().empty(); });
  };
  fail({});
  EXPECT_THAT(notice().lines, ElementsAre("The disk is full."));
  fail("Training failed: vkQueueSubmit failed (VkResult -4): the GPU device was lost (driver reset or hang)");
  const Notice lost = notice();
  EXPECT_EQ(lost.title, "Train Gaussians failed");
  EXPECT_THAT(lost.lines,
              ElementsAre(StartsWith("Training failed: "), StartsWith("A checkpoint was saved at step 1,200"),
                          HasSubstr("until Ombrelux is started again")));
}

TEST_F(WorkspaceTest, WhileSomethingRunsNothingElseIsOpenedOrStarted) {
  const Project project = solvedProject();
  open({project.root});
  workspace_->build();
  until([&] { return trainer_.running(); });
  EXPECT_FALSE(workspace_->buildButton().enabled);
  EXPECT_TRUE(workspace_->stopButton().enabled);
  const std::string refusal = "Finish or cancel the running stage before opening something else.";
  const std::vector<std::function<void()>> openings = {[&] { workspace_->open({folder_.path()}); },
                                                       [&] { workspace_->importDataset(folder_ / "set", {}); },
                                                       [&] { workspace_->closeProject(); }};
  for (const auto& opening : openings) {
    opening();
    EXPECT_THAT(notice().lines, ElementsAre(refusal));
  }
  ASSERT_TRUE(workspace_->project());
  EXPECT_FALSE(workspace_->mayClose());
  workspace_->cancel();
  finishRun();
  EXPECT_TRUE(workspace_->mayClose());

  // A run that is begun while something is looked at comes first.
  workspace_->build();
  workspace_->open({Project::fromDataset(dataset("other"), {}).root});
  until([&] { return trainer_.running() && !workspace_->loading(); });
  EXPECT_THAT(notice().lines, ElementsAre(refusal));
  EXPECT_EQ(workspace_->project()->root, project.root);
  workspace_->cancel();
  finishRun();

  occupied_ = true;
  EXPECT_THAT(workspace_->buildButton().hint, HasSubstr("batch"));
  workspace_->open({folder_.path()});
  EXPECT_THAT(notice().lines, ElementsAre(refusal));
}

TEST_F(WorkspaceTest, WithoutColmapTheFramesCanStillBePrepared) {
  const Project project = Project::create({{toUtf8(photos("p", 3)), InputKind::Images}}, {});
  preferences_.colmapPath.clear();
  make();
  open({project.root});
  until([&] { return workspace_->colmapMissing(); });
  EXPECT_EQ(workspace_->buildButton().hint, kNoColmap);
  EXPECT_EQ(row(Stage::Frames).runFrom.hint, kNoColmap);
  ASSERT_TRUE(row(Stage::Frames).runOnly.enabled);
  EXPECT_FALSE(row(Stage::Sparse).runOnly.enabled);
  workspace_->start(Stage::Frames, Stage::Frames);
  until([&] { return row(Stage::Sparse).runOnly.hint == kNoColmap; });  // no longer for want of frames
  EXPECT_EQ(row(Stage::Train).runOnly.hint, "There is no camera solve to train from. Run Camera solve first.");

  preferences_.colmapPath = toUtf8(colmap_.executable());
  workspace_->findTools();
  until([&] { return row(Stage::Sparse).runOnly.enabled; });
  colmap_.on("mapper", "echo 'no good initial pair'; exit 1\n");
  workspace_->start(Stage::Sparse, Stage::Train);
  until([&] { return !workspace_->notices().empty(); });
  EXPECT_EQ(notice().title, "Sparse reconstruction failed");
  EXPECT_EQ(row(Stage::Sparse).state, StageState::Failed);
}

TEST_F(WorkspaceTest, ADatasetIsWrappedOnceAndOnlyTrained) {
  const fs::path set = dataset("room");
  open({set});
  EXPECT_EQ(notice().title, "Created project");
  ASSERT_TRUE(workspace_->project());
  EXPECT_EQ(workspace_->view().dataset, set);
  EXPECT_EQ(row(Stage::Frames).text, "Using an existing reconstruction");
  EXPECT_EQ(row(Stage::Sparse).text, "2 cameras (imported)");
  EXPECT_FALSE(row(Stage::Sparse).runFrom.enabled);
  workspace_->editProject([](Project& project) { project.training.iterations = 99; });
  workspace_->importDataset(set, {});
  until([&] { return !workspace_->loading(); });
  EXPECT_THAT(workspace_->notices(), IsEmpty());
  EXPECT_EQ(workspace_->project()->training.iterations, 99);  // the same project, not a new one
  workspace_->build();
  until([&] { return trainer_.running(); });
  EXPECT_EQ(trainer_.job().dataset, set);

  workspace_->cancel();
  finishRun();
  workspace_->importDataset(folder_ / "room" / "sparse" / "0", {});
  until([&] { return !workspace_->notices().empty(); });
  EXPECT_THAT(notice().lines[0], HasSubstr("no images/ beside it"));
}

TEST_F(WorkspaceTest, ASceneIsLookedAtWithoutAProject) {
  const Project project = solvedProject();
  gs::writePly(project.sceneFile(), oneSplat(), {});
  writeCheckpoint(project, 10);
  for (const fs::path& scene : {project.sceneFile(), project.checkpointFile()}) {
    open({project.root});
    const uint64_t generation = workspace_->view().generation;
    open({scene});
    EXPECT_FALSE(workspace_->project());
    EXPECT_EQ(workspace_->view().scene, scene);
    EXPECT_TRUE(workspace_->view().dataset.empty());
    EXPECT_GT(workspace_->view().generation, generation);
    EXPECT_THAT(workspace_->results().sceneLine(), StartsWith("1 splats, "));
    EXPECT_FALSE(workspace_->buildButton().enabled);
  }
  workspace_->closeProject();
  EXPECT_TRUE(workspace_->view().scene.empty());
  EXPECT_FALSE(workspace_->results().facts());
}

}  // namespace
}  // namespace quor::ui
