// A run that stops and goes on is the run that never stopped.
#include "gs/train/resume.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <numeric>

#include "gs/data/view_order.h"
#include "gs/splat_kernels.h"
#include "gs/train/strategy/adaptive_density.h"
#include "gs/train/trainer.h"
#include "support/gpu_fixture.h"
#include "support/scoped_environment.h"
#include "support/small_room.h"
#include "support/splats.h"
#include "support/temp_folder.h"

namespace quor::gs {
namespace {

using test::thrownText;

TEST(ViewOrder, ShowsEveryViewOncePerEpochAndFollowsFromTheStepAlone) {
  constexpr uint32_t kViews = 13;
  ViewOrder order(7, kViews);
  std::vector<std::vector<uint32_t>> epochs;
  for (uint64_t epoch = 0; epoch < 4; ++epoch) {
    std::vector<uint32_t> views;
    for (uint64_t step = epoch * kViews; step < (epoch + 1) * kViews; ++step) {
      views.push_back(order.at(step));
      EXPECT_EQ(ViewOrder(7, kViews).at(step), views.back());
    }
    EXPECT_THAT(epochs, testing::Not(testing::Contains(views))) << "no epoch repeats another";
    epochs.push_back(views);
    std::sort(views.begin(), views.end());
    std::vector<uint32_t> all(kViews);
    std::iota(all.begin(), all.end(), 0u);
    EXPECT_EQ(views, all);
  }
}

CheckpointHeader headerOf(Technique technique, uint32_t step, int32_t iterations) {
  CheckpointHeader header;
  header.technique = technique;
  header.step = step;
  header.iterations = iterations;
  header.count = 1000;
  header.sceneExtent = 5.5f;
  return header;
}

TEST(Resume, RefusesWhatTheRunCannotContinue) {
  TrainJob job;
  job.technique = Technique::Vanilla;
  job.iterations = 111;
  job = resolved(job);
  const auto refusal = [&](const CheckpointHeader& header) { return thrownText([&] { continuedJob(job, header); }); };
  EXPECT_EQ(refusal(headerOf(Technique::Mcmc, 5, 111)),
            "The checkpoint was trained with MCMC; continue it with the same technique, or train from the start.");
  EXPECT_EQ(refusal(headerOf(Technique::Vanilla, 111, 111)),
            "The checkpoint is already at step 111. Set more iterations than that to continue training it.");
  EXPECT_EQ(refusal(headerOf(Technique::Vanilla, 110, 7000)), "no exception");

  const CheckpointHeader header = headerOf(Technique::Vanilla, 5, 111);
  EXPECT_NO_THROW(requireSameScene(header, 5.5000001));
  EXPECT_EQ(thrownText([&] { requireSameScene(header, 5.6); }),
            "The checkpoint belongs to another dataset: its cameras span a scene of extent 5.5, this dataset's one of "
            "5.6. Put the cameras and photographs back that it was trained on, or train from the start.");
  EXPECT_NO_THROW(requireRoom(header, {1000 * 944, 180000, 180000}));
  EXPECT_EQ(thrownText([&] {
              requireRoom(header, {1000 * 944, 180000, 179999});
            }),
            "The checkpoint's 1000 splats do not fit this GPU, which has room for 999. Continue it on a GPU with more "
            "memory, or train from the start.");
}

TEST(Resume, KnowsWhetherOpacitiesWereReset) {
  TrainJob job;
  job.technique = Technique::Vanilla;
  job.iterations = 30000;
  job = resolved(job);
  CheckpointHeader header = headerOf(Technique::Vanilla, 6500, 7000);
  const TrainJob continued = continuedJob(job, header);
  // Step 3000 had a reset only in a run that was to densify long enough after it.
  EXPECT_FALSE(opacitiesWereReset(continued, header));
  header.iterations = 8000;
  EXPECT_TRUE(opacitiesWereReset(continued, header));
  header.step = 2999;
  EXPECT_FALSE(opacitiesWereReset(continued, header));
}

// A device of the test's own on which the software driver does everything in one thread, so that sums are added in the
// same order each time. On real hardware they are not.
class ResumeTest : public testing::Test {
 protected:
  bool exact() const { return context_.info().deviceType == VK_PHYSICAL_DEVICE_TYPE_CPU; }

  static TrainJob job(Technique technique) {
    TrainJob job = test::quickJob(technique, 30);
    job.stepsPerLevel = 10;
    job.shDegreeInterval = 14;
    job.refineEvery = 6;
    job.densifyFrom = 6;
    job.densifyUntil = 24;
    job.opacityResetEvery = 12;
    return job;
  }

  void expectSame(const Checkpoint& a, const Checkpoint& b, const std::string& when) const {
    EXPECT_EQ(a.header.randomState, b.header.randomState) << when;
    EXPECT_EQ(a.header.count, b.header.count) << when;
    if (!exact()) return;
    EXPECT_TRUE(test::sameBits(a.set, b.set)) << when;
    for (size_t g = 0; g < kGroupCount; ++g) {
      EXPECT_TRUE(test::sameBits(a.firstMoments[g], b.firstMoments[g])) << when << ", group " << g;
      EXPECT_TRUE(test::sameBits(a.secondMoments[g], b.secondMoments[g])) << when << ", group " << g;
    }
  }

  float psnr(Trainer& trainer) const {
    const std::atomic<bool> cancel = false;
    return trainer.evaluate(cancel).psnr;
  }

  test::ScopedEnvironment oneThread_{"LP_NUM_THREADS", "0"};
  VulkanContext context_{ContextOptions{.validation = true}};
  KernelRegistry registry_{context_, {splatKernels()}};
  Renderer::Variants variants_ = Renderer::Variants::forDevice(context_, registry_);
  LogStore log_{1000};
  test::TempFolder folder_;
};

TEST_F(ResumeTest, AResumedRunIsTheUnstoppedOne) {
  struct Case {
    Technique technique;
    int stop;
    int sameUntil;  // inclusive
  };
  // Stopped before the change of level (10) and of SH degree (14), and after them. Vanilla keeps no statistics of the
  // steps since the last pass: stopped between passes it is the same run up to the next one.
  for (const Case c : {Case{Technique::Mcmc, 8, 30}, {Technique::Vanilla, 6, 30}, {Technique::Vanilla, 15, 17}}) {
    SCOPED_TRACE(std::string(techniqueWord(c.technique)) + " stopped at " + std::to_string(c.stop));
    const TrainJob asked = job(c.technique);
    Trainer unstopped(context_, registry_, log_, asked, test::smallRoom(), variants_);
    unstopped.start();
    while (unstopped.stepsDone() < c.stop) unstopped.step();
    EXPECT_EQ(unstopped.nothingAccumulated(), c.stop != 15);
    SplatSnapshot copy(context_);
    const CheckpointHeader header = unstopped.checkpoint(copy);
    writeCheckpoint(folder_ / "checkpoint.quor", header, copy.arrays());

    const Checkpoint checkpoint = readCheckpoint(folder_ / "checkpoint.quor");
    TrainJob other = asked;  // what the checkpoint decides
    other.seed = 99;
    other.downscaleLevels = 0;
    other.stepsPerLevel = 1;
    const TrainJob continued = continuedJob(other, checkpoint.header);
    Trainer resumed(context_, registry_, log_, continued, test::smallRoom(), variants_);
    resumed.resume(checkpoint);
    expectSame(resumed.checkpoint(), unstopped.checkpoint(), "before the first step");
    while (!unstopped.finished()) {
      unstopped.step();
      resumed.step();
      const int step = unstopped.stepsDone();
      if (step == c.stop + 1 || step == c.sameUntil) {
        expectSame(resumed.checkpoint(), unstopped.checkpoint(), "step " + std::to_string(step));
      }
    }
    EXPECT_NEAR(psnr(resumed), psnr(unstopped), 0.5);
  }
}

}  // namespace
}  // namespace quor::gs
