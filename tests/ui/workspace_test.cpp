#include "ui/workspace_fixture.h"

namespace quor::ui {
namespace {

namespace fs = std::filesystem;
using test::oneSplat;
using test::WorkspaceTest;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::StartsWith;

TEST_F(WorkspaceTest, ARefusalSaysWhatToDoAndLeavesWhatIsOpen) {
  const Project project = solvedProject();
  open({Project::projectFile(project.root)});  // as a file manager does
  ASSERT_TRUE(workspace_->project());
  const uint64_t generation = workspace_->view().generation;

  const fs::path gone = folder_ / "gone";
  preferences_.addRecent(toUtf8(gone));
  open({gone});
  EXPECT_THAT(notice().lines, ElementsAre("No such file or folder:", toUtf8(gone)));
  EXPECT_THAT(preferences_.recentProjects, ElementsAre(toUtf8(project.root)));

  const fs::path text = test::writeFile(folder_ / "notes.txt", "x");
  open({text, text});
  EXPECT_THAT(notice().lines,
              ElementsAre("Ombrelux cannot open this. Drop a folder of images, videos, a Ombrelux project, a COLMAP "
                          "dataset or a .ply scene."));
  open({folder_ / "set" / "sparse" / "0"});
  EXPECT_THAT(notice().lines, ElementsAre(HasSubstr("but no images/ beside it. Choose the folder that holds both")));
  open({project.root, photos("a", 1)});
  EXPECT_THAT(notice().lines[0], HasSubstr("can only be opened by itself"));
  open({test::writeFile(folder_ / "broken.ply", "plywood")});
  EXPECT_THAT(notice().lines[0], HasSubstr("broken.ply"));

  ASSERT_TRUE(workspace_->project());
  EXPECT_EQ(workspace_->project()->root, project.root);
  EXPECT_EQ(workspace_->view().generation, generation);
}

TEST_F(WorkspaceTest, NeitherEditsNorTheFrameStagesRecordAreLost) {
  const Project made = Project::create({{toUtf8(photos("many", 24, 900)), InputKind::Images}}, {});
  const auto saved = [&] { return Project::load(made.root); };
  const auto setSteps = [&](int steps) {
    workspace_->editProject([&](Project& project) { project.training.iterations = steps; });
  };
  open({made.root});
  setSteps(111);
  workspace_->run().start(Stage::Frames, Stage::Frames);  // with an edit that is not saved yet
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
  workspace_->session().importDataset(set, {});
  until([&] { return !workspace_->loading(); });
  EXPECT_THAT(workspace_->notices(), IsEmpty());
  EXPECT_EQ(workspace_->project()->training.iterations, 99);  // the same project, not a new one
  workspace_->run().build();
  until([&] { return trainer_.running(); });
  EXPECT_EQ(trainer_.job().dataset, set);
}

TEST_F(WorkspaceTest, ADatasetWhoseProjectCannotLieBesideItGetsOneElsewhere) {
  const fs::path set = dataset("room");
  test::writeFile(folder_ / "room_ombrelux", "in the way, as a disk that cannot be written to is");
  open({set});
  EXPECT_THAT(workspace_->notices(), IsEmpty());
  DatasetImport& form = workspace_->session().datasetImport();
  ASSERT_TRUE(form.visible);
  EXPECT_EQ(form.dataset, set);
  EXPECT_THAT(form.problem, HasSubstr("room_ombrelux"));
  form.destination = folder_ / "projects";
  workspace_->session().importDataset(form.dataset, form.destination);
  until([&] { return !workspace_->loading(); });
  EXPECT_EQ(notice().title, "Created project");
  EXPECT_FALSE(form.visible);
  ASSERT_TRUE(workspace_->project());
  EXPECT_EQ(workspace_->project()->root, folder_ / "projects" / "room_ombrelux");
  EXPECT_EQ(workspace_->view().dataset, set);
}

TEST_F(WorkspaceTest, ASceneIsLookedAtWithoutAProject) {
  const Project project = solvedProject();
  gs::writePly(project.sceneFile(), oneSplat(), {});
  test::writeSmallCheckpoint(project.checkpointFile(), 10);
  for (const fs::path& scene : {project.sceneFile(), project.checkpointFile()}) {
    open({project.root});
    const uint64_t generation = workspace_->view().generation;
    open({scene});
    EXPECT_FALSE(workspace_->project());
    EXPECT_EQ(workspace_->view().scene, scene);
    EXPECT_TRUE(workspace_->view().dataset.empty());
    EXPECT_GT(workspace_->view().generation, generation);
    EXPECT_THAT(workspace_->results().sceneLine(), StartsWith("1 splats, "));
    EXPECT_FALSE(workspace_->run().buildButton().enabled);
  }
  workspace_->session().close();
  EXPECT_TRUE(workspace_->view().scene.empty());
  EXPECT_FALSE(workspace_->results().facts());
}

}  // namespace
}  // namespace quor::ui
