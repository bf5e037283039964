#include "pipeline/pipeline.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <future>

#include "pipeline/intake.h"
#include "pipeline/result_document.h"
#include "support/bare_dataset.h"
#include "support/fake_trainer.h"
#include "support/small_checkpoint.h"
#include "support/temp_folder.h"

namespace quor {
namespace {

using ::testing::ElementsAre;

class PipelineTest : public ::testing::Test {
 protected:
  static constexpr std::chrono::minutes kPatience{1};

  PipelineTest() {
    project_.root = folder_ / "capture_ombrelux";
    project_.inputs = {{"/somewhere/clip.mp4", InputKind::Video}};
    project_.training.iterations = 500;
    project_.ensureLayout();
  }

  void start(Stage from) {
    pipeline_.open(project_);
    run_ = pipeline_.start(from, Stage::Train);
    ASSERT_TRUE(run_);
  }
  void startTraining() {
    test::writeBareDataset(project_.solvedFolder());
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
    trainer_.setStatus(status);
  }
  void waitUntilIdle() {
    const auto result = run_->waitFor(kPatience);
    ASSERT_TRUE(result) << "the run does not end";
    outcome_ = *result;
    EXPECT_FALSE(pipeline_.busy());
  }
  // Runs training alone until it is refused, and gives the reason.
  std::string refusal() {
    start(Stage::Train);
    waitUntilIdle();
    EXPECT_FALSE(outcome_.success());
    EXPECT_EQ(pipeline_.status(Stage::Train).state, StageState::Failed);
    EXPECT_EQ(pipeline_.status(Stage::Train).message, outcome_.text);
    EXPECT_EQ(trainer_.starts(), 0);
    return outcome_.text;
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
  Pipeline pipeline_{trainer_, log_};
  std::shared_ptr<PipelineRun> run_;
  RunResult outcome_;
};

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
  test::writeBareDataset(project_.solvedFolder());
  test::writeFile(project_.sceneFile(), "ply");
  pipeline_.open(project_);
  EXPECT_THAT(pipeline_.summary(), ElementsAre("2 frames", "2 images registered", "scene.ply exported"));

  test::writeBareDataset(folder_ / "set");
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
  EXPECT_TRUE(outcome_.success());
}

TEST_F(PipelineTest, AFailedStageEndsTheRun) {
  start(Stage::Frames);
  waitUntilIdle();
  EXPECT_FALSE(outcome_.success());
  EXPECT_EQ(pipeline_.status(Stage::Frames).state, StageState::Failed);
  EXPECT_EQ(pipeline_.status(Stage::Sparse).state, StageState::NotRun);
  EXPECT_EQ(trainer_.starts(), 0);
  EXPECT_THAT(logged(), ElementsAre("error: Prepare frames failed: " + outcome_.text));
}

TEST_F(PipelineTest, TrainsOnlyWithCamerasAndContinuesOnlyFromACheckpointWithStepsLeft) {
  EXPECT_EQ(refusal(), "There is no camera solve to train from. Run Camera solve first.");
  test::writeBareDataset(project_.solvedFolder());
  project_.training.continueFromCheckpoint = true;
  const std::string unreadable =
      "Continue from checkpoint is on, but there is no readable checkpoint.quor in output/. Turn it off to train from "
      "the start.";
  EXPECT_EQ(refusal(), unreadable);
  test::writeFile(project_.checkpointFile(), "QUORCKPT");
  EXPECT_EQ(refusal(), unreadable);
  test::writeSmallCheckpoint(project_.checkpointFile(), 500);
  EXPECT_EQ(refusal(), "The checkpoint is already at step 500. Set more iterations than that to continue training it.");

  test::writeSmallCheckpoint(project_.checkpointFile(), 499);
  startTraining();
  EXPECT_TRUE(trainer_.job().resume);
}

TEST_F(PipelineTest, TheGeoreferenceLiesBesideTheSceneAsLongAsTheProjectHasOne) {
  project_.georeference = {{48.1, -11.5, 520.25}, 0.25, 30, 28, 0.4, 0.9};
  saveGeoreference(project_);
  const nlohmann::json read = nlohmann::json::parse(test::readFile(project_.georeferenceFile()));
  EXPECT_EQ(read["origin"]["latitude"], 48.1);
  EXPECT_EQ(read["axes"]["y"], "north");
  EXPECT_EQ(toJson(readGeoreference(read)), toJson(*project_.georeference));
  project_.georeference.reset();
  saveGeoreference(project_);
  EXPECT_FALSE(std::filesystem::exists(project_.georeferenceFile()));
}

TEST_F(PipelineTest, AStopExportsTheSceneButWhileLoadingThereIsNone) {
  const auto stopDuring = [this](gs::TrainState state) {
    startTraining();
    report(state, 42);
    pipeline_.requestStop();
    waitUntilIdle();
    return outcome_.text;
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
  test::writeBareDataset(project_.solvedFolder());
  std::string told;
  {
    Pipeline pipeline(trainer_, log_);
    pipeline.open(project_);
    run_ = pipeline.start(Stage::Train, Stage::Train, [&](bool, const std::string& text) { told = text; });
    ASSERT_TRUE(run_);
  }
  EXPECT_EQ(told, "Cancelled");
  ASSERT_TRUE(run_->ended());  // the handle outlives the pipeline
  EXPECT_EQ(run_->waitFor({})->outcome, Outcome::Cancelled);
  EXPECT_FALSE(trainer_.running());
}

// Stages that wait until they are asked to end, or fail as they are told to.
class ControlledStagesTest : public PipelineTest {
 protected:
  StageBody waits() {
    return [this](Project&, const StageContext& context) -> StageResult {
      started_.set_value();
      if (context.run.waitForRequest(PipelineRun::Request::None, kPatience) == PipelineRun::Request::None) {
        throw std::runtime_error("nobody asked");
      }
      throw std::runtime_error("the decoder was interrupted");  // as a library may word it
    };
  }
  static StageBody done() {
    return [](Project&, const StageContext&) -> StageResult { return {"done", {}}; };
  }
  RunResult run(StageBodies stages, const std::function<void(PipelineRun&)>& act) {
    Pipeline pipeline(trainer_, log_, {}, nullptr, std::move(stages));
    pipeline.open(project_);
    run_ = pipeline.start(Stage::Frames, Stage::Train);
    act(*run_);
    const RunResult result = run_->waitFor(kPatience).value();
    for (size_t i = 0; i < kStageCount; ++i) states_[i] = pipeline.status(static_cast<Stage>(i));
    return result;
  }

  std::promise<void> started_;
  std::array<StageStatus, kStageCount> states_;
};

TEST_F(ControlledStagesTest, AStopEndsTheStagesBeforeTrainingAtOnce) {
  for (const size_t at : {size_t{0}, size_t{1}}) {
    started_ = {};
    StageBodies stages = {done(), done(), done()};
    stages[at] = waits();
    const RunResult result = run(stages, [this](PipelineRun& run) {
      started_.get_future().wait();
      run.requestStop();
    });
    EXPECT_EQ(std::tuple(result.outcome, result.text), std::tuple(Outcome::Cancelled, "Cancelled"));
    EXPECT_EQ(std::tuple(states_[at].state, states_[at].outcome, states_[at].message),
              std::tuple(StageState::Failed, Outcome::Cancelled, "Cancelled"));
    EXPECT_EQ(states_[2].state, StageState::NotRun);
  }
}

TEST_F(ControlledStagesTest, AFailureKeepsItsType) {
  const auto outcomeOf = [&](const auto& error) {
    const StageBody fails = [&](Project&, const StageContext&) -> StageResult { throw error; };
    const RunResult result = run({done(), done(), fails}, [](PipelineRun&) {});
    EXPECT_EQ(states_[2].outcome, result.outcome);
    EXPECT_EQ(result.text, error.what());
    return result.outcome;
  };
  EXPECT_EQ(outcomeOf(DeviceLost("the GPU device was lost")), Outcome::DeviceLost);
  EXPECT_EQ(outcomeOf(DiskFull("no room")), Outcome::DiskFull);
  EXPECT_EQ(outcomeOf(Cancelled()), Outcome::Cancelled);
  EXPECT_EQ(outcomeOf(std::runtime_error("Cancelled")), Outcome::Failed);  // a type, not a text
}

TEST_F(PipelineTest, AProjectIsWorkedOnByOneRunAtATime) {
  startTraining();
  test::FakeTrainer otherTrainer;
  Pipeline other(otherTrainer, log_);
  other.open(project_);
  EXPECT_EQ(
      test::thrownText([&] { other.start(Stage::Train, Stage::Train); }),
      "Another Ombrelux is working on " + toUtf8(project_.root) + ". Wait until it has finished, or end it there.");
  EXPECT_EQ(test::thrownText([&] { saveBeforeRun(project_); }).substr(0, 16), "Another Ombrelux");
  finish(gs::TrainState::Done, gs::TrainResult{});
  const auto run = other.start(Stage::Train, Stage::Train);
  ASSERT_TRUE(run);
  run->cancel();
  EXPECT_TRUE(run->waitFor(kPatience));
}

}  // namespace
}  // namespace quor
