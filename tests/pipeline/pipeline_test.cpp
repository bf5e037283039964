#include "pipeline/pipeline.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <thread>

#include "fake_trainer.h"
#include "support/temp_folder.h"

namespace quor {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;

struct Outcome {
  bool called = false;
  bool success = false;
  std::string result;
};

class PipelineTest : public ::testing::Test {
 protected:
  PipelineTest() {
    project_.root = folder_ / "capture_ombrelux";
    project_.inputs = {{"/somewhere/clip.mp4", InputKind::Video}};
    project_.training.iterations = 500;
    project_.ensureLayout();
  }

  void solveCameras(const std::filesystem::path& dataset) {
    test::writeFile(dataset / "sparse/0/cameras.txt", "1 PINHOLE 64 48 60 60 32 24\n");
    test::writeFile(dataset / "sparse/0/images.txt", "1 1 0 0 0 0 0 0 1 a.jpg\n\n2 1 0 0 0 0 0 1 1 b.jpg\n\n");
    test::writeFile(dataset / "sparse/0/points3D.txt", "");
  }
  void solveCameras() { solveCameras(project_.colmapFolder()); }

  // Bytes 16..19 hold the step; the splat count is checked against the file's size.
  void writeCheckpoint(uint32_t step) {
    std::string bytes(112 + 708, '\0');
    const auto put = [&](size_t at, auto value) { std::memcpy(bytes.data() + at, &value, sizeof value); };
    bytes.replace(0, 8, "QUORCKPT");
    put(8, uint32_t{1});
    put(16, step);
    put(20, int32_t{500});
    put(36, uint32_t{6});
    put(40, uint64_t{1});
    test::writeFile(project_.checkpointFile(), bytes);
  }

  Pipeline::Completion completion() {
    return [this](bool success, const std::string& result) { outcome_ = {true, success, result}; };
  }
  void start(Stage from, Stage to = Stage::Train) {
    pipeline_.open(project_);
    ASSERT_TRUE(pipeline_.start(from, to, completion()));
  }
  void waitUntilIdle() {
    while (pipeline_.busy()) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  void waitForMessage(const std::string& part) {
    while (pipeline_.status(Stage::Train).message.find(part) == std::string::npos) {
      ASSERT_TRUE(pipeline_.busy());
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
  }
  // Runs training alone until it is refused, and gives the reason.
  std::string refusal() {
    start(Stage::Train);
    waitUntilIdle();
    EXPECT_FALSE(outcome_.success);
    EXPECT_EQ(pipeline_.status(Stage::Train).state, StageState::Failed);
    EXPECT_EQ(pipeline_.status(Stage::Train).message, outcome_.result);
    EXPECT_EQ(trainer_.starts(), 0);
    return outcome_.result;
  }
  std::vector<std::string> logged() {
    std::vector<std::string> lines;
    for (const LogEntry& entry : log_.entriesAfter(0)) lines.push_back(levelPrefix(entry.level) + entry.text);
    return lines;
  }

  test::TempFolder folder_;
  Project project_;
  LogStore log_{100};
  test::FakeTrainer trainer_;
  Outcome outcome_;  // outlives the worker that writes it
  Pipeline pipeline_{trainer_, log_};
};

TEST_F(PipelineTest, TrainsAndReportsTheResult) {
  solveCameras();
  start(Stage::Train);
  trainer_.waitUntilStarted();
  waitForMessage("500 iterations");

  gs::TrainStatus status;
  status.state = gs::TrainState::Training;
  status.step = 125;
  status.iterations = 500;
  status.loss = 0.25f;
  trainer_.setStatus(status);
  waitForMessage("Step 125 of 500, loss 0.250000");
  EXPECT_FLOAT_EQ(pipeline_.status(Stage::Train).fraction, 0.25f);

  gs::TrainResult result;
  result.splats = 1234;
  result.evaluation = {27.5f, 0.9f, 0.01f, 3};
  trainer_.finish(result);
  waitUntilIdle();
  EXPECT_TRUE(outcome_.success);
  EXPECT_EQ(outcome_.result, "Done");
  EXPECT_EQ(pipeline_.status(Stage::Train).state, StageState::Done);
  EXPECT_EQ(pipeline_.status(Stage::Train).message, "1234 splats, PSNR 27.50");
  ASSERT_TRUE(pipeline_.trainResult());
  EXPECT_EQ(pipeline_.trainResult()->splats, 1234u);
}

TEST_F(PipelineTest, WrappedDatasetTrainsOnly) {
  solveCameras(folder_ / "set");
  project_.externalDataset = toUtf8(folder_ / "set");
  project_.inputs.clear();
  start(Stage::Frames);
  trainer_.waitUntilStarted();
  EXPECT_EQ(trainer_.job().dataset, folder_ / "set");
  EXPECT_EQ(trainer_.job().output, project_.outputFolder());
  EXPECT_EQ(pipeline_.status(Stage::Frames).state, StageState::NotRun);
  EXPECT_EQ(pipeline_.status(Stage::Sparse).state, StageState::NotRun);
  trainer_.finish({});
  waitUntilIdle();
  EXPECT_TRUE(outcome_.success);
}

TEST_F(PipelineTest, AFailedStageEndsTheRun) {
  solveCameras();
  start(Stage::Frames);
  waitUntilIdle();
  EXPECT_FALSE(outcome_.success);
  EXPECT_EQ(pipeline_.status(Stage::Frames).state, StageState::Failed);
  EXPECT_EQ(pipeline_.status(Stage::Sparse).state, StageState::NotRun);
  EXPECT_EQ(trainer_.starts(), 0);
  EXPECT_THAT(logged(), ElementsAre("error: Prepare frames failed: " + outcome_.result));

  project_.inputs.clear();
  start(Stage::Frames);
  waitUntilIdle();
  EXPECT_EQ(outcome_.result, "The project has no input media.");
}

TEST_F(PipelineTest, PassesTheTrainersFailureOn) {
  solveCameras();
  start(Stage::Train);
  trainer_.waitUntilStarted();
  trainer_.fail("The COLMAP model has no registered images.");
  waitUntilIdle();
  EXPECT_FALSE(outcome_.success);
  EXPECT_EQ(outcome_.result, "The COLMAP model has no registered images.");
  EXPECT_FALSE(pipeline_.trainResult());
  // The project stays open and can be trained again.
  ASSERT_TRUE(pipeline_.start(Stage::Train, Stage::Train, completion()));
  trainer_.waitUntilStarted();
  trainer_.finish({});
  waitUntilIdle();
  EXPECT_TRUE(outcome_.success);
}

TEST_F(PipelineTest, RefusesToTrainWithoutCameras) {
  EXPECT_EQ(refusal(), "There is no camera solve to train from. Run Camera solve first.");
}

TEST_F(PipelineTest, ContinuesOnlyFromACheckpointWithStepsLeft) {
  solveCameras();
  project_.training.continueFromCheckpoint = true;
  const std::string unreadable =
      "Continue from checkpoint is on, but there is no readable checkpoint.quor in output/. Turn it off to train from "
      "the start.";
  EXPECT_EQ(refusal(), unreadable);
  test::writeFile(project_.checkpointFile(), "QUORCKPT");
  EXPECT_EQ(refusal(), unreadable);
  writeCheckpoint(500);
  EXPECT_EQ(refusal(), "The checkpoint is already at step 500. Set more iterations than that to continue training it.");

  writeCheckpoint(499);
  start(Stage::Train);
  trainer_.waitUntilStarted();
  EXPECT_TRUE(trainer_.job().resume);
}

TEST_F(PipelineTest, CancelsTraining) {
  solveCameras();
  start(Stage::Train);
  trainer_.waitUntilStarted();
  pipeline_.cancel();
  waitUntilIdle();
  EXPECT_FALSE(outcome_.success);
  EXPECT_EQ(outcome_.result, "Cancelled");
  EXPECT_EQ(pipeline_.status(Stage::Train).state, StageState::Failed);
  EXPECT_EQ(pipeline_.status(Stage::Train).message, "Cancelled");
  EXPECT_THAT(logged(), ElementsAre("Train Gaussians: 500 iterations", "warning: Train Gaussians cancelled"));
}

TEST_F(PipelineTest, AStageThatSaysCancelledWasCancelled) {
  solveCameras();
  start(Stage::Train);
  trainer_.waitUntilStarted();
  trainer_.fail("Cancelled");
  waitUntilIdle();
  EXPECT_EQ(outcome_.result, "Cancelled");
  EXPECT_THAT(logged(), ElementsAre("Train Gaussians: 500 iterations", "warning: Train Gaussians cancelled"));
}

TEST_F(PipelineTest, StopsTrainingWithAScene) {
  solveCameras();
  start(Stage::Train);
  trainer_.waitUntilStarted();
  gs::TrainStatus status;
  status.state = gs::TrainState::Training;
  status.step = 42;
  trainer_.setStatus(status);
  pipeline_.requestStop();
  waitUntilIdle();
  EXPECT_TRUE(outcome_.success);
  EXPECT_EQ(pipeline_.status(Stage::Train).message, "Stopped at step 42, exported");
}

TEST_F(PipelineTest, AStopWhileLoadingKeepsAnEarlierScene) {
  solveCameras();
  for (const bool earlier : {false, true}) {
    if (earlier) test::writeFile(project_.sceneFile(), "ply");
    start(Stage::Train);
    trainer_.waitUntilStarted();
    gs::TrainStatus status;
    status.state = gs::TrainState::Loading;
    trainer_.setStatus(status);
    pipeline_.requestStop();
    waitUntilIdle();
    EXPECT_EQ(outcome_.result, earlier ? "Cancelled" : "Done");
  }
}

TEST_F(PipelineTest, GuardsTheProjectWhileBusy) {
  EXPECT_FALSE(pipeline_.start(Stage::Train, Stage::Train));  // nothing open
  solveCameras();
  start(Stage::Train);
  trainer_.waitUntilStarted();
  const std::string busy = "Finish or cancel the running stage first.";
  EXPECT_EQ(test::thrownText([&] { pipeline_.open(project_); }), busy);
  EXPECT_EQ(test::thrownText([&] { pipeline_.close(); }), busy);
  EXPECT_FALSE(pipeline_.start(Stage::Train, Stage::Train));
  pipeline_.cancel();
  waitUntilIdle();
  pipeline_.close();
  EXPECT_EQ(pipeline_.status(Stage::Train).state, StageState::NotRun);
  EXPECT_THAT(pipeline_.summary(), ElementsAre("Not run", "Not run", "Not run"));
}

TEST_F(PipelineTest, EndsARunningJobWhenItGoes) {
  solveCameras();
  Outcome outcome;
  {
    Pipeline pipeline(trainer_, log_);
    pipeline.open(project_);
    ASSERT_TRUE(pipeline.start(Stage::Train, Stage::Train, [&](bool success, const std::string& result) {
      outcome = {true, success, result};
    }));
  }
  EXPECT_TRUE(outcome.called);
  EXPECT_EQ(outcome.result, "Cancelled");
  EXPECT_FALSE(trainer_.running());
}

TEST_F(PipelineTest, SummarisesWhatLiesInTheProject) {
  pipeline_.open(project_);
  EXPECT_THAT(pipeline_.summary(), ElementsAre("Not run", "Not run", "Not run"));

  for (const char* name : {"f00001.jpg", "s02/f00001.jpg", "notes.txt"}) {
    test::writeFile(project_.framesFolder() / name, "");
  }
  solveCameras();
  test::writeFile(project_.sceneFile(), "ply");
  EXPECT_THAT(pipeline_.summary(), ElementsAre("2 frames", "2 images registered", "scene.ply exported"));

  solveCameras(folder_ / "set");
  project_.externalDataset = toUtf8(folder_ / "set");
  pipeline_.open(project_);
  EXPECT_THAT(pipeline_.summary(),
              ElementsAre("Using an existing reconstruction", "2 cameras (imported)", "scene.ply exported"));
}

TEST(MakeTrainJob, TheProjectsSettingsDecide) {
  Project project;
  project.root = "/p";
  TrainingSettings& settings = project.training;
  settings.technique = gs::Technique::Mcmc;
  settings.iterations = 11;
  settings.shDegree = 1;
  settings.numDownscales = 4;
  settings.ssimWeight = 0.5f;
  settings.refineEvery = 13;
  settings.evalMode = false;
  settings.testEvery = 5;
  settings.exportPLY = false;
  settings.exportSplat = true;
  settings.splatBudget = 17;
  settings.trainingResolution = 19;
  settings.background = {0.1f, 0.2f, 0.3f};
  settings.continueFromCheckpoint = true;

  const gs::TrainJob job = makeTrainJob(project);
  EXPECT_EQ(job.dataset, "/p");
  EXPECT_EQ(job.output, "/p/output");
  EXPECT_EQ(job.technique, gs::Technique::Mcmc);
  EXPECT_EQ(job.iterations, 11);
  EXPECT_EQ(job.shDegree, 1);
  EXPECT_EQ(job.downscaleLevels, 4);
  EXPECT_EQ(job.ssimWeight, 0.5f);
  EXPECT_EQ(job.refineEvery, 13);
  EXPECT_FALSE(job.evalMode);
  EXPECT_EQ(job.testEvery, 5);
  EXPECT_FALSE(job.exportPly);
  EXPECT_TRUE(job.exportSplat);
  EXPECT_EQ(job.splatBudget, 17u);
  EXPECT_EQ(job.resolution, 19);
  EXPECT_EQ(job.background, settings.background);
  EXPECT_TRUE(job.resume);
  // A project that keeps its defaults trains at the images' own size, whatever a bare job would do.
  EXPECT_EQ(makeTrainJob(Project{}).resolution, 0);
  EXPECT_EQ(makeTrainJob(Project{}).technique, gs::Technique::Vanilla);
}

}  // namespace
}  // namespace quor
