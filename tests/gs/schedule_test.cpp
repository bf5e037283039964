#include "gs/train/schedule.h"

#include <gtest/gtest.h>

#include <cmath>

#include "gs/splats/splat_cap.h"
#include "gs/train/strategy/adaptive_density.h"
#include "gs/train/strategy/mcmc.h"

namespace quor::gs {
namespace {

TrainJob jobOf(Technique technique, int iterations) {
  TrainJob job;
  job.technique = technique;
  job.iterations = iterations;
  return resolved(job);
}

TEST(Schedule, SenselessValuesAreMended) {
  TrainJob job;
  job.iterations = 0;
  job.refineEvery = -3;
  job.downscaleLevels = 1000;
  job.ssimWeight = NAN;
  job.background = {NAN, 2, -1};
  job = resolved(job);
  EXPECT_EQ(job.iterations, 1);
  EXPECT_EQ(job.refineEvery, 1);
  EXPECT_LE(job.downscaleLevels, 30) << "a shift by it must make sense";
  EXPECT_EQ(job.ssimWeight, 0.2f);
  EXPECT_EQ(job.background, (std::array<float, 3>{0, 1, 0}));
  EXPECT_EQ(job.stepsPerLevel, 1);
}

TEST(Schedule, ShortRunsDensifyToo) {
  for (const Technique technique : {Technique::Vanilla, Technique::Mcmc}) {
    for (const int iterations : {1, 30, 300, 600, 1000, 2999}) {
      const TrainJob job = jobOf(technique, iterations);
      int passes = 0, resets = 0;
      Mcmc mcmc(job, 1.0, 100000);
      for (int step = 1; step < iterations; ++step) {
        passes += (technique == Technique::Mcmc ? mcmc.growsAt(step) : densifiesAt(job, step)) ? 1 : 0;
        resets += resetsOpacitiesAt(job, step) ? 1 : 0;
      }
      EXPECT_EQ(resets, 0) << "the scene would not recover";
      if (iterations < 30) continue;
      EXPECT_GE(passes, iterations >= 300 ? 3 : 1) << iterations;
      EXPECT_LE(passes, 18) << iterations;
      EXPECT_GE(shDegreeAt(job, iterations - 1), 2) << "as in a run of 2999 steps";
      EXPECT_EQ(levelAt(job, iterations - 1), 0);
    }
  }
  TrainJob asked;
  asked.iterations = 300;
  asked.refineEvery = 50;
  asked = resolved(asked);
  EXPECT_EQ(asked.refineEvery, 50);
  EXPECT_EQ(resolved(asked).densifyFrom, asked.densifyFrom) << "resolving again changes nothing";
}

TEST(Schedule, PassesRunWithinTheirSpans) {
  const TrainJob vanilla = jobOf(Technique::Vanilla, 30000);
  EXPECT_TRUE(densifiesAt(vanilla, 15000));
  EXPECT_FALSE(densifiesAt(vanilla, 15100));
  EXPECT_TRUE(resetsOpacitiesAt(vanilla, 12000));
  EXPECT_FALSE(resetsOpacitiesAt(vanilla, 15000)) << "the scene would not recover";
  EXPECT_FALSE(resetsOpacitiesAt(jobOf(Technique::Vanilla, 7000), 3000)) << "too near the end of densification";
}

TEST(Schedule, McmcReachesItsTargetAsFarAsItMayGrow) {
  const auto grown = [](int iterations, uint64_t count) {
    const TrainJob job = jobOf(Technique::Mcmc, iterations);
    const Mcmc mcmc(job, 1.0, 1000000);
    for (int step = 1; step <= iterations; ++step) count = mcmc.countAfter(step, count);
    return count;
  };
  EXPECT_EQ(grown(30000, 5000), 150000u);
  EXPECT_EQ(grown(7000, 5000), 150000u) << "5 % a pass would end far from it";
  EXPECT_GT(grown(300, 5000), 5000u * 2);
  EXPECT_LT(grown(300, 5000), 5000u * 4) << "no more than 15 % a pass";
  EXPECT_EQ(grown(7000, 200000), 200000u);
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
