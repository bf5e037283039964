// Jobs from their first line to their files, and stopping them at any moment.
#include "gs/train/engine.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>

#include "base/files/paths.h"
#include "gs/files/checkpoint.h"
#include "gs/files/ply.h"
#include "support/gpu_fixture.h"
#include "support/small_capture.h"
#include "support/temp_folder.h"
#include "support/train_outputs.h"
#include "support/wait_until.h"

namespace quor::gs {
namespace {

using test::TempFolder;

class EngineTest : public GpuTest {
 protected:
  // Photographed once for all tests of the program.
  static const std::filesystem::path& capture() {
    static const TempFolder folder;
    static const std::filesystem::path path = [] {
      test::writeSmallCapture(folder / "room");
      return folder / "room";
    }();
    return path;
  }

  TrainJob job(Technique technique, int iterations) const {
    TrainJob j;
    j.dataset = capture();
    j.output = test::outputsIn(folder_ / "output");
    j.technique = technique;
    j.iterations = iterations;
    j.refineEvery = 20;
    j.densifyFrom = 20;
    j.downscaleLevels = 1;
    j.mcmcTarget = 500;
    return j;
  }

  bool said(const std::string& start) const {
    const std::vector<LogEntry> entries = log.entriesAfter(0);
    return std::any_of(entries.begin(), entries.end(),
                       [&](const LogEntry& entry) { return entry.text.compare(0, start.size(), start) == 0; });
  }
  // Waits for a condition on the running job; false when the job ended without it.
  template <class Condition>
  bool waitUntil(Condition condition) const {
    bool met = false;
    test::waitUntil([&] { return (met = condition()) || !engine.running(); });
    return met;
  }
  std::string runLog() const { return test::readFile(folder_ / "output/training.log"); }
  bool exists(const char* name) const { return std::filesystem::exists(folder_ / "output" / name); }

  TempFolder folder_;
  LogStore log{1000};
  Engine engine{context, log};
};

TEST_F(EngineTest, AJobLeavesItsFilesAndTheirFiguresAgree) {
  for (const Technique technique : {Technique::Vanilla, Technique::Mcmc}) {
    TrainJob j = job(technique, 60);
    j.exportSplat = true;
    engine.startTraining(j);
    const auto result = engine.wait();
    ASSERT_TRUE(result) << engine.status().text;
    EXPECT_EQ(engine.status().state, TrainState::Done);
    EXPECT_EQ(engine.status().step, 60);
    EXPECT_FALSE(result->stopped);
    EXPECT_EQ(result->evaluation.views, 2u);
    const GaussianSet scene = readPly(*result->ply);
    EXPECT_EQ(scene.count, result->splats);
    EXPECT_EQ(std::filesystem::file_size(*result->splat), 32 * result->splats);
    const Checkpoint checkpoint = readCheckpoint(*result->checkpoint);
    EXPECT_EQ(checkpoint.set.positions, scene.positions);
    EXPECT_EQ(checkpoint.header.step, 60u);
    EXPECT_NE(runLog().find(std::string("technique   ") + techniqueWord(technique)), std::string::npos) << runLog();
    EXPECT_NE(runLog().find("steps       60 of 60"), std::string::npos) << runLog();
  }
}

TEST_F(EngineTest, AStoppedJobGoesOnAndSaysWhereFrom) {
  engine.startTraining(job(Technique::Mcmc, 1000000));
  ASSERT_TRUE(waitUntil([&] { return engine.status().step >= 25; })) << engine.status().text;
  engine.requestStop();
  const auto stopped = engine.wait();
  ASSERT_TRUE(stopped) << engine.status().text;
  const std::string from = std::to_string(stopped->steps);
  EXPECT_TRUE(said("Training stopped at step " + from + "; exporting anyway."));

  TrainJob more = job(Technique::Mcmc, stopped->steps + 20);
  more.resume = true;
  engine.startTraining(more);
  const auto result = engine.wait();
  ASSERT_TRUE(result) << engine.status().text;
  const std::string target = std::to_string(more.iterations);
  EXPECT_TRUE(said("Continuing from the checkpoint at step " + from + " (" + std::to_string(stopped->splats) +
                   " splats) towards " + target));
  EXPECT_NE(runLog().find("steps       " + target + " of " + target + " (continued from step " + from + ")"),
            std::string::npos);

  // From another dataset.
  Checkpoint other = readCheckpoint(*result->checkpoint);
  other.header.sceneExtent *= 1.5f;
  writeCheckpoint(*result->checkpoint, other);
  more.iterations += 10;
  engine.startTraining(more);
  EXPECT_FALSE(engine.wait());
  EXPECT_EQ(engine.status().text.find("The checkpoint belongs to another dataset: "), 0u) << engine.status().text;
}

TEST_F(EngineTest, LongRunsLeaveCheckpointsOnTheWay) {
  TrainJob j = job(Technique::Vanilla, 1000000);
  j.checkpointSeconds = 0.05;
  engine.startTraining(j);
  const auto path = folder_ / "output/checkpoint.quor";
  ASSERT_TRUE(waitUntil([&] { return exists("checkpoint.quor"); })) << engine.status().text;
  const Checkpoint first = readCheckpoint(path);
  EXPECT_GT(first.header.step, 0u);
  EXPECT_FALSE(exists("scene.ply"));
  // One that cannot be written costs a warning, not the run.
  std::filesystem::create_directories(folder_ / "output/checkpoint.quor.partial/in the way");
  EXPECT_TRUE(waitUntil([&] { return said("Could not write the checkpoint: Could not write " + toUtf8(path)); }));
  EXPECT_TRUE(engine.running());
  std::filesystem::remove_all(folder_ / "output/checkpoint.quor.partial");
  engine.cancel();
  EXPECT_FALSE(engine.wait());
  EXPECT_GE(readCheckpoint(path).header.step, first.header.step) << "whole, and no older";
}

TEST_F(EngineTest, HeldOutViewsLeaveAReportThatBelongsToTheScene) {
  engine.startTraining(job(Technique::Mcmc, 3));
  auto result = engine.wait();
  ASSERT_TRUE(result) << engine.status().text;
  std::istringstream scores(test::readFile(folder_ / "output/eval/scores.csv"));
  std::string line;
  std::getline(scores, line);
  float sum = 0;
  while (std::getline(scores, line)) sum += std::stof(line.substr(line.find(',') + 1));
  EXPECT_NEAR(sum / 2, result->evaluation.psnr, 1e-3);
  // No report can be written: the scene is there all the same.
  std::filesystem::remove_all(folder_ / "output/eval");
  test::writeFile(folder_ / "output/eval", "in the way");
  engine.startTraining(job(Technique::Mcmc, 3));
  result = engine.wait();
  ASSERT_TRUE(result) << engine.status().text;
  EXPECT_EQ(result->evaluation.views, 2u);
  EXPECT_TRUE(said("Could not write the held-out report: "));

  std::filesystem::remove(folder_ / "output/eval");
  test::writeFile(folder_ / "output/eval/scores.csv", "of another scene");
  TrainJob none = job(Technique::Mcmc, 3);
  none.evalMode = false;
  engine.startTraining(none);
  ASSERT_TRUE(engine.wait()) << engine.status().text;
  EXPECT_FALSE(exists("eval/scores.csv"));
}

TEST_F(EngineTest, StoppingExportsAndCancellingDoesNot) {
  const TrainJob endless = job(Technique::Vanilla, 1000000);
  engine.startTraining(endless);
  EXPECT_THROW(engine.startTraining(endless), std::logic_error);
  ASSERT_TRUE(waitUntil([&] { return engine.status().step > 0; })) << engine.status().text;
  engine.requestStop();
  const auto result = engine.wait();
  ASSERT_TRUE(result) << engine.status().text;
  EXPECT_TRUE(result->stopped);
  EXPECT_EQ(engine.status().state, TrainState::Stopped);
  EXPECT_EQ(engine.status().text, "Stopped early (exported)");
  const std::string checkpoint = test::readFile(folder_ / "output/checkpoint.quor");
  EXPECT_EQ(readCheckpoint(folder_ / "output/checkpoint.quor").header.step, static_cast<uint32_t>(result->steps));
  test::writeFile(folder_ / "output/scene.ply", "precious");

  // Cancelled at any moment, or stopped before the first step: earlier results stay, and the run is logged.
  const auto expectCancelled = [&](const char* when) {
    EXPECT_FALSE(engine.wait()) << when;
    EXPECT_EQ(engine.status().state, TrainState::Stopped) << when;
    EXPECT_EQ(engine.status().text, "Cancelled") << when;
    EXPECT_EQ(engine.status().outcome, Outcome::Cancelled) << when;
    EXPECT_EQ(test::readFile(folder_ / "output/scene.ply"), "precious") << when;
    EXPECT_TRUE(test::readFile(folder_ / "output/checkpoint.quor") == checkpoint) << when;
    EXPECT_NE(runLog().find("result      Stopped\n"), std::string::npos) << when;
    std::filesystem::remove(folder_ / "output/training.log");
  };
  engine.startTraining(endless);
  engine.requestStop();
  expectCancelled("stopped while loading");
  engine.startTraining(endless);
  engine.cancel();
  expectCancelled("cancelled while loading");
  engine.startTraining(endless);
  waitUntil([&] { return engine.status().step > 0; });
  engine.cancel();
  expectCancelled("cancelled while training");
}

TEST_F(EngineTest, WhenGpuMemoryRunsOutTheSceneIsSavedAndTrainingGoesOn) {
  TrainJob j = job(Technique::Mcmc, 400);
  j.refineEvery = 100;
  j.densifyFrom = 100;
  j.mcmcTarget = 20000;
  engine.startTraining(j);
  // The seeds have room for the target; what the first large view lists has none.
  ASSERT_TRUE(waitUntil([&] { return engine.status().step > 0; })) << engine.status().text;
  context.limitMemory(GpuBuffer::liveBytes());
  const bool saved = waitUntil([&] { return said("GPU memory ran out at step "); });
  context.limitMemory(0);
  const auto result = engine.wait();
  ASSERT_TRUE(saved) << "nothing was allocated any more";
  ASSERT_TRUE(result) << engine.status().text;
  EXPECT_TRUE(said("The scene of step "));
  EXPECT_TRUE(said("Training goes on with at most "));
  EXPECT_EQ(result->steps, 400);
  EXPECT_FALSE(result->stopped);
}

TEST_F(EngineTest, FailuresAreSentencesAndLeaveFilesAlone) {
  const auto failure = [&](const TrainJob& j) {
    engine.startTraining(j);
    EXPECT_FALSE(engine.wait());
    EXPECT_EQ(engine.status().state, TrainState::Failed);
    return engine.status().text;
  };
  test::writeFile(folder_ / "output/scene.ply", "precious");
  TrainJob j = job(Technique::Vanilla, 5);
  j.dataset = folder_ / "nowhere";
  EXPECT_NE(failure(j).find("No COLMAP model found in "), std::string::npos);

  j = job(Technique::Vanilla, 5);
  j.resume = true;
  EXPECT_NE(failure(j).find("Could not open "), std::string::npos);

  j = job(Technique::Vanilla, 5);
  test::writeFile(folder_ / "file", "");
  j.output = test::outputsIn(folder_ / "file/output");  // below a file nothing can be written
  EXPECT_NE(failure(j).find("Cannot write to "), std::string::npos);
  EXPECT_EQ(test::readFile(folder_ / "output/scene.ply"), "precious");
  EXPECT_NE(runLog().find("result      Failed\n"), std::string::npos);
  EXPECT_NE(runLog().find("reason      No COLMAP model found in "), std::string::npos);

  std::filesystem::remove(folder_ / "output/scene.ply");
  std::filesystem::create_directories(folder_ / "output/scene.ply/in the way");
  EXPECT_NE(failure(job(Technique::Vanilla, 5)).find("scene.ply"), std::string::npos);
  EXPECT_EQ(readCheckpoint(folder_ / "output/checkpoint.quor").header.step, 5u) << "the training is not lost";
}

TEST_F(EngineTest, ExtremeJobsEndInAScene) {
  TrainJob j = job(Technique::Vanilla, 0);  // one step
  j.resolution = 1;                         // images of one pixel
  j.downscaleLevels = 100;
  j.shDegree = 9;
  j.testEvery = 0;
  engine.startTraining(j);
  auto result = engine.wait();
  ASSERT_TRUE(result) << engine.status().text;
  EXPECT_EQ(result->steps, 1);
  EXPECT_EQ(result->evaluation.views, 0u);

  j = job(Technique::Mcmc, 3);
  j.splatBudget = 1;
  engine.startTraining(j);
  result = engine.wait();
  ASSERT_TRUE(result) << engine.status().text;
  EXPECT_EQ(result->splats, 1u);
}

}  // namespace
}  // namespace quor::gs
