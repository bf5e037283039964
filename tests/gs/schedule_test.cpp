#include "gs/train/schedule.h"

#include <gtest/gtest.h>

#include <cmath>

#include "gs/splats/splat_cap.h"

namespace quor::gs {
namespace {

TrainJob jobOf(Technique technique, int iterations) {
  TrainJob job;
  job.technique = technique;
  job.iterations = iterations;
  return resolved(job);
}

TEST(Schedule, AutomaticAndSenselessValuesAreDecided) {
  TrainJob job;
  job.iterations = 0;
  job.shDegree = 5;
  job.refineEvery = -3;
  job.downscaleLevels = 1000;
  job.ssimWeight = NAN;
  job.background = {NAN, 2, -1};
  job = resolved(job);
  EXPECT_EQ(job.iterations, 1);
  EXPECT_EQ(job.shDegree, 3);
  EXPECT_EQ(job.refineEvery, 1);
  EXPECT_LE(job.downscaleLevels, 30) << "a shift by it must make sense";
  EXPECT_EQ(job.ssimWeight, 0.2f);
  EXPECT_EQ(job.background, (std::array<float, 3>{0, 1, 0}));
  EXPECT_EQ(job.stepsPerLevel, 1);

  EXPECT_EQ(jobOf(Technique::Vanilla, 30000).stepsPerLevel, 3000);
  EXPECT_EQ(jobOf(Technique::Mcmc, 30000).stepsPerLevel, 10000);
  EXPECT_EQ(jobOf(Technique::Vanilla, 7000).densifyUntil, 3500);
  EXPECT_EQ(jobOf(Technique::Vanilla, 90000).densifyUntil, 15000);

  TrainJob budget;
  budget.splatBudget = 20000;
  EXPECT_EQ(resolved(budget).mcmcTarget, 20000u);
}

TEST(Schedule, ImagesDoubleDegreesRiseAndRatesFall) {
  const TrainJob job = jobOf(Technique::Vanilla, 30000);
  EXPECT_EQ(levelAt(job, 0), 2);
  EXPECT_EQ(levelAt(job, 2999), 2);
  EXPECT_EQ(levelAt(job, 3000), 1);
  EXPECT_EQ(levelAt(job, 6000), 0);
  EXPECT_EQ(levelAt(job, 29999), 0);
  EXPECT_EQ(shDegreeAt(job, 999), 0);
  EXPECT_EQ(shDegreeAt(job, 1000), 1);
  EXPECT_EQ(shDegreeAt(job, 29999), 3);
  EXPECT_NEAR(positionRate(job, 0, 2.0), 2 * 0.00016, 1e-9);
  EXPECT_NEAR(positionRate(job, 15000, 1.0), 0.000016, 1e-9);
  EXPECT_NEAR(positionRate(job, 30000, 1.0), 0.0000016, 1e-9);
}

TEST(Schedule, PassesRunWithinTheirSpans) {
  const TrainJob vanilla = jobOf(Technique::Vanilla, 30000);
  EXPECT_FALSE(isVanillaRefineStep(vanilla, 400));
  EXPECT_TRUE(isVanillaRefineStep(vanilla, 500));
  EXPECT_FALSE(isVanillaRefineStep(vanilla, 550));
  EXPECT_TRUE(isVanillaRefineStep(vanilla, 15000));
  EXPECT_FALSE(isVanillaRefineStep(vanilla, 15100));
  EXPECT_TRUE(isOpacityResetStep(vanilla, 12000));
  EXPECT_FALSE(isOpacityResetStep(vanilla, 15000)) << "the scene would not recover";
  EXPECT_FALSE(isOpacityResetStep(jobOf(Technique::Vanilla, 7000), 3000)) << "too near the end of densification";

  const TrainJob mcmc = jobOf(Technique::Mcmc, 10000);
  EXPECT_TRUE(isMcmcGrowStep(mcmc, 7000));
  EXPECT_FALSE(isMcmcGrowStep(mcmc, 7100));
  EXPECT_TRUE(isMcmcRelocateStep(mcmc, 8500));
  EXPECT_FALSE(isMcmcRelocateStep(mcmc, 8600));
}

TEST(Schedule, McmcReachesItsTargetAsFarAsItMayGrow) {
  const auto grown = [](int iterations, uint64_t count) {
    const TrainJob job = jobOf(Technique::Mcmc, iterations);
    for (int step = 1; step <= iterations; ++step) count = mcmcCountAfter(job, step, count, 150000);
    return count;
  };
  EXPECT_EQ(grown(30000, 5000), 150000u);
  EXPECT_EQ(grown(7000, 5000), 150000u) << "5 % a pass would end far from it";
  EXPECT_NEAR(static_cast<double>(grown(2000, 5000)), 5000 * std::pow(1.15, 10), 30);
  EXPECT_EQ(grown(400, 5000), 5000u);
  EXPECT_EQ(grown(7000, 200000), 200000u);
  EXPECT_EQ(mcmcCountAfter(jobOf(Technique::Mcmc, 30000), 500, 1000, 1200), 1050u);
}

TEST(Schedule, McmcOpacitiesLearnEverMoreSlowly) {
  const TrainJob job = jobOf(Technique::Mcmc, 1000);
  EXPECT_FLOAT_EQ(opacityRate(job, 0), 0.05f);
  EXPECT_FLOAT_EQ(opacityRate(job, 500), std::sqrt(0.05f * 0.01f));
  EXPECT_FLOAT_EQ(opacityRate(job, 1000), 0.01f);
  EXPECT_FLOAT_EQ(opacityRate(jobOf(Technique::Vanilla, 1000), 900), 0.05f);
}

TEST(SplatCap, IsTheLeastOfWhatWasAskedForAndWhatTheDeviceTakes) {
  constexpr uint64_t kGiB = 1ull << 30;
  const DeviceLimits large = {8 * kGiB, 4 * kGiB, 2 * kGiB};
  EXPECT_EQ(splatCap(large, 1000000, 0).splats, 1000000u);
  const SplatCap automatic = splatCap(large, 0, 0);
  EXPECT_GT(automatic.splats, 5000000u);
  EXPECT_NE(automatic.reason.find("free memory"), std::string::npos) << automatic.reason;
  EXPECT_LT(splatCap(large, 0, 4 * kGiB).splats, automatic.splats) << "photographs take their room first";

  // The binding of 45 floats a splat is what ends a scene on the software driver.
  const SplatCap bound = splatCap({24 * kGiB, 2 * kGiB, 128u << 20}, 5000000, 0);
  EXPECT_EQ(bound.splats, (128u << 20) / 180);
  EXPECT_NE(bound.reason.find("lowered"), std::string::npos) << bound.reason;
  EXPECT_THROW(splatCap({1u << 20, kGiB, kGiB}, 0, 0), std::runtime_error);
}

}  // namespace
}  // namespace quor::gs
