#include "pipeline/batch/batch_queue.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/bare_dataset.h"
#include "support/fake_trainer.h"
#include "support/small_checkpoint.h"
#include "support/temp_folder.h"

namespace quor {
namespace {

using test::writeBareDataset;
using test::writeFile;
using test::writeSmallCheckpoint;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

class BatchQueueTest : public ::testing::Test {
 protected:
  BatchQueueTest() {
    batch_.file = folder_ / "batch.json";
    batch_.destination = folder_ / "out";
  }

  BatchItem& addDataset(const std::string& path) {
    writeBareDataset(folder_ / path);
    return addBroken(path);
  }
  BatchItem& addBroken(const std::string& path) {
    BatchItem& item = batch_.items.emplace_back();
    item.colmapImport = toUtf8(folder_ / path);
    return item;
  }

  // Works through the file's items, or batch_ at first. Training ends as `train` says.
  void run(const std::function<void(BatchQueue&)>& train) {
    if (std::filesystem::exists(batch_.file)) batch_ = Batch::load(batch_.file);
    BatchQueue* running = nullptr;
    BatchQueue queue(batch_, [&](size_t index, BatchEvent event) {
      if (event == BatchEvent::Skipped) skipped_.push_back(index);
      if (event != BatchEvent::Working) return;
      EXPECT_EQ(running->current(), index);
      EXPECT_EQ(Batch::load(batch_.file).items[index].state, ItemState::Waiting);
      if (trainer_.running()) train(*running);
    });
    running = &queue;
    queue.run(pipeline_, trainer_, log_);
    EXPECT_FALSE(queue.current());
    batch_ = Batch::load(batch_.file);
  }
  void finishTraining() {
    gs::TrainResult result;
    result.splats = 1234;
    result.evaluation = {27.25f, 0.9f, 0.01f, 3};
    trainer_.end(gs::TrainState::Done, result);
  }
  std::vector<std::string> outcomes() const {
    std::vector<std::string> texts;
    for (const BatchItem& item : batch_.items) texts.push_back(itemStateName(item.state) + (": " + item.note));
    return texts;
  }
  std::vector<std::string> logged() const {
    std::vector<std::string> lines;
    for (const LogEntry& entry : log_.entriesAfter(0)) {
      if (entry.text.starts_with("Batch")) lines.push_back(levelPrefix(entry.level) + entry.text);
    }
    return lines;
  }

  test::TempFolder folder_;
  Batch batch_;
  std::vector<size_t> skipped_;
  LogStore log_{200};
  test::FakeTrainer trainer_;
  Pipeline pipeline_{trainer_, log_};
};

TEST_F(BatchQueueTest, GoesThroughEveryItemAndRetriesOnlyWhatFailed) {
  addDataset("one/set");
  addBroken("gone");
  batch_.items.emplace_back().selection = "nothing at all";
  addDataset("two/set").selection = "second";
  batch_.items.back().training.iterations = 9;
  run([&](BatchQueue&) { finishTraining(); });
  EXPECT_THAT(outcomes(),
              ElementsAre("finished: 1234 splats - PSNR 27.25 dB", HasSubstr("failed: No COLMAP model in "),
                          "failed: A project needs at least one input", "finished: 1234 splats - PSNR 27.25 dB"));
  EXPECT_EQ(logged().back(), "Batch finished: 2 of 4");
  EXPECT_EQ(trainer_.job().dataset, folder_ / "two/set");
  EXPECT_EQ(trainer_.job().iterations, 9);
  EXPECT_EQ(Project::load(folder_ / "out/set_ombrelux_2").training.iterations, 9);

  writeBareDataset(folder_ / "gone");
  run([&](BatchQueue&) { trainer_.end(gs::TrainState::Failed, {}, "Out of memory."); });
  EXPECT_THAT(skipped_, ElementsAre(0, 3));
  EXPECT_EQ(outcomes()[1], "failed: Out of memory.");
  EXPECT_EQ(trainer_.starts(), 3);
}

// The first engine loses the GPU with its first item, and for good.
TEST_F(BatchQueueTest, AnItemThatLosesTheGpuIsTriedAgainOnANewOne) {
  addDataset("one/set");
  addDataset("two/set");
  test::FakeTrainer fresh;
  Pipeline freshPipeline(fresh, log_);
  int opened = 0;
  const auto open = [&]() -> BatchQueue::Equipment {
    ++opened;
    return {&freshPipeline, &fresh};
  };
  BatchQueue queue(batch_, [&](size_t, BatchEvent event) {
    if (event != BatchEvent::Working) return;
    gs::TrainStatus status;
    status.step = 300;
    if (trainer_.running()) trainer_.setStatus(status);
    writeSmallCheckpoint(folder_ / "out/set_ombrelux/output/checkpoint.quor", 300);
    trainer_.end(gs::TrainState::Failed, {}, "the GPU device was lost", Outcome::DeviceLost);
    gs::TrainResult result;
    result.splats = 7;
    fresh.end(gs::TrainState::Done, result);
  });
  queue.run(pipeline_, trainer_, log_, open);
  batch_ = queue.snapshot();
  EXPECT_THAT(outcomes(), ElementsAre("finished: 7 splats", "finished: 7 splats"));
  EXPECT_EQ(std::tuple(opened, trainer_.starts(), fresh.starts()), std::tuple(1, 1, 2));
  EXPECT_THAT(logged(), ::testing::Contains("Batch: set: going on from step 300 of its checkpoint"));
}

TEST_F(BatchQueueTest, EveryItemIsVisitedWhileTheGpuStaysLost) {
  addDataset("one/set");
  addDataset("two/set");
  const auto lose = [&](size_t, BatchEvent event) {
    if (event == BatchEvent::Working) trainer_.end(gs::TrainState::Failed, {}, "lost", Outcome::DeviceLost);
  };
  BatchQueue queue(batch_, lose);
  queue.run(pipeline_, trainer_, log_, []() -> BatchQueue::Equipment { throw std::runtime_error("No GPU."); });
  batch_ = queue.snapshot();
  const std::string failed = "failed: The GPU was lost and cannot be opened again: No GPU.";
  EXPECT_THAT(outcomes(), ElementsAre(failed, failed));

  BatchQueue alone(batch_, lose);
  alone.run(pipeline_, trainer_, log_);  // nobody opens another
  batch_ = alone.snapshot();
  EXPECT_THAT(outcomes(), ElementsAre("failed: lost", "failed: lost"));
}

TEST_F(BatchQueueTest, OneRunAtATimeWorksThroughAFile) {
  addDataset("set");
  std::string refused;
  run([&](BatchQueue&) {
    BatchQueue second(batch_);
    Pipeline pipeline(trainer_, log_);
    refused = test::thrownText([&] { second.run(pipeline, trainer_, log_); });
    finishTraining();
  });
  EXPECT_EQ(refused, "Another Ombrelux is working through " + toUtf8(batch_.file) +
                         ". Wait until it has finished, or end it there.");
  EXPECT_FALSE(std::filesystem::exists(folder_ / "batch.json.lock"));
  EXPECT_THAT(outcomes(), ElementsAre("finished: 1234 splats - PSNR 27.25 dB"));
}

TEST_F(BatchQueueTest, AStopKeepsWhatWasTrainedAndTheNextRunGoesOn) {
  addDataset("one/set");
  addDataset("two/set");
  const auto checkpoint = folder_ / "out/set_ombrelux/output/checkpoint.quor";
  run([&](BatchQueue& queue) {
    writeSmallCheckpoint(checkpoint, 300);
    gs::TrainStatus status;
    status.state = gs::TrainState::Training;
    status.step = 300;
    trainer_.setStatus(status);
    queue.cancel();
  });
  EXPECT_THAT(outcomes(), ElementsAre("waiting: Stopped at step 300, exported", "waiting: "));
  EXPECT_FALSE(trainer_.job().resume);
  EXPECT_EQ(logged().back(), "Batch stopped: 0 of 2");

  run([&](BatchQueue& queue) {
    const bool first = trainer_.job().dataset == folder_ / "one/set";
    EXPECT_EQ(trainer_.job().resume, first);
    first ? finishTraining() : queue.cancelAtOnce();
  });
  EXPECT_THAT(logged(), ::testing::Contains("Batch: set: going on from step 300 of its checkpoint"));
  EXPECT_THAT(outcomes(), ElementsAre("finished: 1234 splats - PSNR 27.25 dB", "waiting: Cancelled"));
  EXPECT_FALSE(Project::load(folder_ / "out/set_ombrelux").training.continueFromCheckpoint);

  BatchQueue queue(batch_);
  queue.cancel();  // before it began
  queue.run(pipeline_, trainer_, log_);
  EXPECT_EQ(trainer_.starts(), 3);
}

TEST_F(BatchQueueTest, NewItemsNeverTakeAnothersFolder) {
  const auto folderOf = [&](size_t index) { return toUtf8(planItem(batch_, index).project.root.filename()); };
  addDataset("one/set");
  addDataset("two/set");
  EXPECT_EQ(folderOf(1), "set_ombrelux");
  batch_.items[0].projectRoot = batch_.destination / "set_ombrelux";
  EXPECT_EQ(folderOf(1), "set_ombrelux_2");
  batch_.items[1].projectRoot = batch_.items[0].projectRoot;  // copied by hand
  EXPECT_EQ(folderOf(0), "set_ombrelux");
  EXPECT_EQ(folderOf(1), "set_ombrelux_2");

  batch_.items[1].projectRoot.clear();
  writeBareDataset(folder_ / "else/set");
  Project::fromDataset(folder_ / "else/set", batch_.destination);
  std::filesystem::rename(batch_.destination / "set_ombrelux", batch_.destination / "set_ombrelux_2");
  writeFile(batch_.destination / "set_ombrelux_3/holiday.txt", "");
  EXPECT_EQ(folderOf(1), "set_ombrelux_4");
  Project::fromDataset(folder_ / "two/set", batch_.destination / "own");
  batch_.destination /= "own";
  EXPECT_EQ(folderOf(1), "set_ombrelux");
}

class BatchPlanTest : public BatchQueueTest {
 protected:
  BatchPlanTest() {
    writeFile(folder_ / "photos/a.jpg", "");
    BatchItem& item = batch_.items.emplace_back();
    item.sources = {{toUtf8(folder_ / "photos"), InputKind::Images}};
    project_ = planItem(batch_, 0).project;
    preparePlan(planItem(batch_, 0));
    item.projectRoot = project_.root;
  }
  BatchItem& item() { return batch_.items[0]; }
  // The stage it begins with, and whether training goes on.
  std::string plan() const {
    const BatchPlan plan = planItem(batch_, 0);
    if (plan.finishedSplats) return "finished";
    return std::string(stageName(plan.from)) + (plan.resume ? ", resumed" : "");
  }

  Project project_;
};

TEST_F(BatchPlanTest, GoesOnAfterTheLastStageThatWasCompleted) {
  EXPECT_EQ(plan(), "Prepare frames");
  writeFile(project_.framesFolder() / "s01/f1.jpg", "");
  project_.extraction.groups.emplace_back().name = "phone";
  project_.save();
  EXPECT_EQ(plan(), "Sparse reconstruction");
  EXPECT_EQ(planItem(batch_, 0).project.extraction.groups.size(), 1u);
  writeBareDataset(project_.solvedFolder());
  EXPECT_EQ(plan(), "Train Gaussians");
  writeSmallCheckpoint(project_.checkpointFile(), 300);
  EXPECT_EQ(plan(), "Train Gaussians, resumed");

  item().training.technique = gs::Technique::Mcmc;
  EXPECT_EQ(plan(), "Train Gaussians");
  item().training.technique = gs::Technique::Vanilla;
  writeSmallCheckpoint(project_.checkpointFile(), 7000);
  EXPECT_EQ(plan(), "Train Gaussians");
  writeFile(project_.sceneFile(), "ply");
  EXPECT_EQ(plan(), "finished");
  item().training.iterations = 9000;
  EXPECT_EQ(plan(), "Train Gaussians, resumed");
  item().training.iterations = 7000;
  item().training.trainingResolution = 800;
  EXPECT_EQ(plan(), "Train Gaussians");
  preparePlan(planItem(batch_, 0));  // and killed before there was a new checkpoint: the scene is the earlier one
  EXPECT_EQ(plan(), "Train Gaussians");
}

TEST_F(BatchPlanTest, StartsOverWhereSettingsOrMediaAreOthers) {
  writeFile(project_.framesFolder() / "f1.jpg", "");
  writeBareDataset(project_.solvedFolder());
  writeSmallCheckpoint(project_.checkpointFile(), 300);
  const BatchItem before = item();
  item().sparse.maxFeatures = 99;
  EXPECT_EQ(plan(), "Sparse reconstruction");
  item().sparse.singleCamera = false;
  EXPECT_EQ(plan(), "Prepare frames");
  item() = before;
  item().ingest.maxDimension = 99;
  EXPECT_EQ(plan(), "Prepare frames");
  item() = before;
  item().sources[0].path = toUtf8(folder_ / "other photos");
  EXPECT_EQ(plan(), "Prepare frames");
  // Nothing is given up for media that are not there.
  EXPECT_THAT(test::thrownText([&] { preparePlan(planItem(batch_, 0)); }), HasSubstr("No such file or folder: "));
  item() = before;
  EXPECT_EQ(plan(), "Train Gaussians, resumed");

  std::filesystem::remove_all(project_.solvedFolder());
  item().state = ItemState::Failed;
  EXPECT_EQ(plan(), "Prepare frames");

  item() = before;
  writeBareDataset(project_.solvedFolder());
  item().sparse.maxFeatures = 99;
  preparePlan(planItem(batch_, 0));  // and killed before the stage began
  EXPECT_EQ(plan(), "Sparse reconstruction");
  EXPECT_FALSE(std::filesystem::exists(project_.checkpointFile()));
  item().ingest.maxDimension = 99;
  preparePlan(planItem(batch_, 0));
  EXPECT_EQ(plan(), "Prepare frames");
  EXPECT_TRUE(std::filesystem::is_empty(project_.framesFolder()));
}

}  // namespace
}  // namespace quor
