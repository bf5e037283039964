// Jobs from their first line to their files, and stopping them at any moment.
#include "gs/engine.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <thread>

#include "gs/checkpoint.h"
#include "gs/ply.h"
#include "support/gpu_fixture.h"
#include "support/small_capture.h"
#include "support/temp_folder.h"

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
    j.output = folder_ / "output";
    j.technique = technique;
    j.iterations = iterations;
    j.refineEvery = 20;
    j.densifyFrom = 20;
    j.downscaleLevels = 1;
    j.mcmcTarget = 500;
    return j;
  }

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
    const std::string runLog = test::readFile(folder_ / "output/training.log");
    EXPECT_NE(runLog.find(std::string("technique   ") + techniqueWord(technique)), std::string::npos) << runLog;
    EXPECT_NE(runLog.find("steps       60 of 60"), std::string::npos) << runLog;
  }
  // One that goes on from there.
  TrainJob more = job(Technique::Mcmc, 90);
  more.resume = true;
  engine.startTraining(more);
  ASSERT_TRUE(engine.wait()) << engine.status().text;
  EXPECT_NE(test::readFile(folder_ / "output/training.log").find("90 of 90 (continued from step 60)"),
            std::string::npos);
}

TEST_F(EngineTest, StoppingExportsAndCancellingDoesNot) {
  for (const int milliseconds : {0, 40, 300}) {
    engine.startTraining(job(Technique::Vanilla, 1000000));
    EXPECT_TRUE(engine.running());
    EXPECT_THROW(engine.startTraining(job(Technique::Vanilla, 1)), std::logic_error);
    std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
    engine.requestStop();
    const auto result = engine.wait();
    ASSERT_TRUE(result) << engine.status().text;
    EXPECT_TRUE(result->stopped);
    EXPECT_EQ(engine.status().state, TrainState::Stopped);
    EXPECT_EQ(engine.status().text, "Stopped early (exported)");
    EXPECT_EQ(readCheckpoint(folder_ / "output/checkpoint.quor").header.step, static_cast<uint32_t>(result->steps));
  }
  std::filesystem::remove_all(folder_ / "output");
  for (const int milliseconds : {0, 40, 300}) {
    engine.startTraining(job(Technique::Mcmc, 1000000));
    std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
    engine.cancel();
    EXPECT_FALSE(engine.wait());
    EXPECT_EQ(engine.status().state, TrainState::Stopped);
    EXPECT_EQ(engine.status().text, "Cancelled");
    EXPECT_FALSE(exists("scene.ply") || exists("checkpoint.quor") || exists("training.log"));
  }
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
  j.output = folder_ / "file/output";  // below a file nothing can be written
  EXPECT_NE(failure(j).find("Cannot write to "), std::string::npos);
  EXPECT_EQ(test::readFile(folder_ / "output/scene.ply"), "precious");
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
  const std::vector<LogEntry> said = log.entriesAfter(0);
  EXPECT_TRUE(std::any_of(said.begin(), said.end(), [](const LogEntry& entry) {
    return entry.text == "The setting iterations cannot be 0: 1 is used.";
  }));

  j = job(Technique::Mcmc, 3);
  j.splatBudget = 1;
  engine.startTraining(j);
  result = engine.wait();
  ASSERT_TRUE(result) << engine.status().text;
  EXPECT_EQ(result->splats, 1u);
}

}  // namespace
}  // namespace quor::gs
