#include "pipeline/pipeline.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <thread>

#include "support/fake_trainer.h"
#include "support/temp_folder.h"

namespace quor {
namespace {

using ::testing::AnyOf;
using ::testing::ElementsAre;
using ::testing::StartsWith;

struct Ended {
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
  void solveCameras() { solveCameras(project_.solvedFolder()); }

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
    return [this](bool success, const std::string& result) { outcome_ = {success, result}; };
  }
  void start(Stage from) {
    pipeline_.open(project_);
    ASSERT_TRUE(pipeline_.start(from, Stage::Train, completion()));
  }
  void startTraining() {
    solveCameras();
    start(Stage::Train);
    trainer_.waitUntilStarted();
  }
  void finish(gs::TrainState state, const std::optional<gs::TrainResult>& result, const std::string& text = {}) {
    trainer_.end(state, result, text);
    waitUntilIdle();
  }
  void report(gs::TrainState state, int step) {
    gs::TrainStatus status;
    status.state = state;
    status.step = static_cast<decltype(status.step)>(step);
    status.iterations = 500;
    status.loss = 0.25f;
    trainer_.setStatus(status);
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
  Ended outcome_;  // outlives the worker that writes it
  Pipeline pipeline_{trainer_, log_};
};

TEST_F(PipelineTest, TrainsAndReportsTheResult) {
  startTraining();
  waitForMessage("500 iterations");
  report(gs::TrainState::Training, 125);
  waitForMessage("Step 125 of 500, loss 0.250000");
  EXPECT_FLOAT_EQ(pipeline_.status(Stage::Train).fraction, 0.25f);

  gs::TrainResult result;
  result.splats = 1234;
  result.evaluation = {27.5f, 0.9f, 0.01f, 3};
  finish(gs::TrainState::Done, result);
  EXPECT_TRUE(outcome_.success);
  EXPECT_EQ(outcome_.result, "Done");
  EXPECT_EQ(pipeline_.status(Stage::Train).state, StageState::Done);
  EXPECT_EQ(pipeline_.status(Stage::Train).message, "1234 splats, PSNR 27.50");
  ASSERT_TRUE(pipeline_.trainResult());
  EXPECT_EQ(pipeline_.trainResult()->splats, 1234u);
}

TEST_F(PipelineTest, SettingsThatCannotBeUsedAreSaid) {
  project_.training.iterations = 0;
  project_.training.refineEvery = 100;  // a short run uses less, but nobody asked for that
  startTraining();
  finish(gs::TrainState::Done, gs::TrainResult{});
  std::vector<std::string> warnings;
  for (const LogEntry& entry : log_.entriesAfter(0)) {
    if (entry.level == LogLevel::Warning) warnings.push_back(entry.text);
  }
  EXPECT_THAT(warnings, ElementsAre("The setting iterations cannot be 0: 1 is used."));
}

TEST_F(PipelineTest, AWrappedDatasetIsSummarisedAndOnlyTrained) {
  for (const char* name : {"f00001.jpg", "s02/f00001.jpg", "notes.txt"}) {
    test::writeFile(project_.framesFolder() / name, "");
  }
  solveCameras();
  test::writeFile(project_.sceneFile(), "ply");
  pipeline_.open(project_);
  EXPECT_THAT(pipeline_.summary(), ElementsAre("2 frames", "2 images registered", "scene.ply exported"));

  solveCameras(folder_ / "set");
  project_.externalDataset = toUtf8(folder_ / "set");
  project_.inputs.clear();
  start(Stage::Frames);
  EXPECT_THAT(pipeline_.summary(),
              ElementsAre("Using an existing reconstruction", "2 cameras (imported)", "scene.ply exported"));
  trainer_.waitUntilStarted();
  EXPECT_EQ(trainer_.job().dataset, folder_ / "set");
  EXPECT_EQ(trainer_.job().output.folder, project_.outputFolder());
  EXPECT_EQ(pipeline_.status(Stage::Frames).state, StageState::NotRun);
  EXPECT_EQ(pipeline_.status(Stage::Sparse).state, StageState::NotRun);
  finish(gs::TrainState::Done, gs::TrainResult{});
  EXPECT_TRUE(outcome_.success);
}

TEST_F(PipelineTest, AFailedStageEndsTheRun) {
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
  EXPECT_THAT(outcome_.result,
              AnyOf("The project has no input media.", StartsWith("This build of Ombrelux only trains")));
}

TEST_F(PipelineTest, PassesTheTrainersFailureOnAndCanTrainAgain) {
  startTraining();
  finish(gs::TrainState::Failed, {}, "The COLMAP model has no registered images.");
  EXPECT_FALSE(outcome_.success);
  EXPECT_EQ(outcome_.result, "The COLMAP model has no registered images.");
  EXPECT_FALSE(pipeline_.trainResult());
  ASSERT_TRUE(pipeline_.start(Stage::Train, Stage::Train, completion()));
  trainer_.waitUntilStarted();
  finish(gs::TrainState::Done, gs::TrainResult{});
  EXPECT_TRUE(outcome_.success);
}

TEST_F(PipelineTest, TrainsOnlyWithCamerasAndContinuesOnlyFromACheckpointWithStepsLeft) {
  EXPECT_EQ(refusal(), "There is no camera solve to train from. Run Camera solve first.");
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
  startTraining();
  EXPECT_TRUE(trainer_.job().resume);
}

TEST_F(PipelineTest, CancelledByTheUserOrByTheStageItself) {
  for (const bool byUser : {true, false}) {
    startTraining();
    byUser ? pipeline_.cancel() : trainer_.end(gs::TrainState::Failed, {}, "Cancelled", Outcome::Cancelled);
    waitUntilIdle();
    EXPECT_FALSE(outcome_.success);
    EXPECT_EQ(outcome_.result, "Cancelled");
    EXPECT_EQ(pipeline_.status(Stage::Train).state, StageState::Failed);
    EXPECT_EQ(pipeline_.status(Stage::Train).message, "Cancelled");
    EXPECT_EQ(logged().back(), "warning: Train Gaussians cancelled");
  }
}

TEST_F(PipelineTest, AStopExportsTheSceneButWhileLoadingThereIsNone) {
  const auto stopDuring = [this](gs::TrainState state) {
    startTraining();
    report(state, 42);
    pipeline_.requestStop();
    waitUntilIdle();
    return outcome_.result;
  };
  EXPECT_EQ(stopDuring(gs::TrainState::Training), "Done");
  EXPECT_EQ(pipeline_.status(Stage::Train).message, "Stopped at step 42, exported");
  EXPECT_EQ(stopDuring(gs::TrainState::Loading), "Cancelled");
}

TEST_F(PipelineTest, GuardsTheProjectWhileBusy) {
  EXPECT_FALSE(pipeline_.start(Stage::Train, Stage::Train));  // nothing open
  startTraining();
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
  {
    Pipeline pipeline(trainer_, log_);
    pipeline.open(project_);
    ASSERT_TRUE(pipeline.start(Stage::Train, Stage::Train, completion()));
  }
  EXPECT_EQ(outcome_.result, "Cancelled");
  EXPECT_FALSE(trainer_.running());
}

TEST(MakeTrainJob, TheProjectsSettingsDecide) {
  Project project;
  project.root = "/p";
  const auto json = nlohmann::ordered_json::parse(
      R"({"training":{"technique":"mcmc","iterations":11,"shDegree":1,"numDownscales":4,"ssimWeight":0.5,)"
      R"("refineEvery":13,"evalMode":false,"testEvery":5,"exportPLY":false,"exportSplat":true,"splatBudget":17,)"
      R"("trainingResolution":19,"background":[0.1,0.2,0.3],"continueFromCheckpoint":true}})");
  fromJson(json, project.ingest, project.sparse, project.training);
  const gs::TrainJob job = makeTrainJob(project);
  EXPECT_EQ(std::tuple(job.dataset, job.output.folder, job.technique, job.background),
            std::tuple("/p/colmap/undistorted", "/p/output", gs::Technique::Mcmc, project.training.background));
  EXPECT_EQ(std::tuple(job.iterations, job.shDegree, job.downscaleLevels, job.ssimWeight, job.refineEvery,
                       job.testEvery, job.splatBudget, job.resolution),
            std::tuple(11, 1, 4, 0.5f, 13, 5, 17u, 19));
  EXPECT_EQ(std::tuple(job.evalMode, job.exportPly, job.exportSplat, job.resume), std::tuple(false, false, true, true));
  // A project that keeps its defaults trains at the images' own size, whatever a bare job would do.
  EXPECT_EQ(makeTrainJob(Project{}).resolution, 0);
}

}  // namespace
}  // namespace quor
