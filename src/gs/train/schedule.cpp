#include "gs/train/schedule.h"

#include <algorithm>
#include <cmath>

namespace quor::gs {
namespace {

// Beyond this an image of 16 k pixels has shrunk to 64: more levels only blur.
constexpr int32_t kMaxLevels = 8;

// Of the splats there are, in one pass of MCMC.
constexpr double kMinGrowth = 0.05, kMaxGrowth = 0.15;

float finiteIn(float value, float low, float high, float otherwise) {
  return std::isfinite(value) ? std::clamp(value, low, high) : otherwise;
}

long fractionOf(const TrainJob& job, float fraction) {
  return std::lround(static_cast<double>(fraction) * job.iterations);
}

double exponential(double start, double end, int stepsDone, int iterations) {
  return start * std::pow(end / std::max(start, 1e-12), static_cast<double>(stepsDone) / iterations);
}

bool every(int step, int period) {
  return period > 0 && step % period == 0;
}

}  // namespace

TrainJob resolved(TrainJob job) {
  job.iterations = std::max(job.iterations, 1);
  job.shDegree = std::clamp(job.shDegree, 0, 3);
  job.resolution = std::max(job.resolution, 0);
  job.downscaleLevels = std::clamp(job.downscaleLevels, 0, kMaxLevels);
  job.refineEvery = std::max(job.refineEvery, 1);
  job.ssimWeight = finiteIn(job.ssimWeight, 0.0f, 1.0f, 0.2f);
  for (float& channel : job.background) channel = finiteIn(channel, 0.0f, 1.0f, 0.0f);
  if (job.stepsPerLevel <= 0) {
    const int third = job.iterations / 3;
    job.stepsPerLevel = std::max(job.technique == Technique::Vanilla ? std::min(third, 3000) : third, 1);
  }
  if (job.densifyUntil <= 0) job.densifyUntil = std::min(std::max(job.iterations / 2, 1), 15000);
  if (job.splatBudget > 0) job.mcmcTarget = std::min(job.mcmcTarget, job.splatBudget);
  return job;
}

double positionRate(const TrainJob& job, int stepsDone, double extent) {
  const bool mcmc = job.technique == Technique::Mcmc;
  const double start = static_cast<double>(mcmc ? job.mcmcPositionRateStart : job.positionRateStart);
  const double end = static_cast<double>(mcmc ? job.mcmcPositionRateEnd : job.positionRateEnd);
  return exponential(start, end, stepsDone, job.iterations) * extent;
}

float opacityRate(const TrainJob& job, int stepsDone) {
  if (job.technique == Technique::Vanilla) return job.opacityRate;
  return static_cast<float>(exponential(static_cast<double>(job.opacityRate),
                                        static_cast<double>(job.mcmcOpacityRateEnd), stepsDone, job.iterations));
}

int levelAt(const TrainJob& job, int stepsDone) {
  return std::max(0, job.downscaleLevels - stepsDone / std::max(job.stepsPerLevel, 1));
}

int shDegreeAt(const TrainJob& job, int stepsDone) {
  if (job.shDegreeInterval <= 0) return job.shDegree;
  return std::min(std::max(stepsDone, 0) / job.shDegreeInterval, job.shDegree);
}

bool isVanillaRefineStep(const TrainJob& job, int step) {
  return every(step, job.refineEvery) && step >= job.densifyFrom && step <= job.densifyUntil;
}

bool isOpacityResetStep(const TrainJob& job, int step) {
  return every(step, job.opacityResetEvery) && step + job.opacityResetEvery / 3 <= job.densifyUntil;
}

bool isMcmcRelocateStep(const TrainJob& job, int step) {
  return every(step, job.refineEvery) && step >= job.densifyFrom && step <= fractionOf(job, job.mcmcRelocateUntil);
}

bool isMcmcGrowStep(const TrainJob& job, int step) {
  return isMcmcRelocateStep(job, step) && step <= fractionOf(job, job.mcmcGrowUntil);
}

uint64_t mcmcCountAfter(const TrainJob& job, int step, uint64_t count, uint64_t target) {
  if (!isMcmcGrowStep(job, step) || count == 0 || count >= target) return count;
  const long passesLeft = (fractionOf(job, job.mcmcGrowUntil) - step) / job.refineEvery + 1;
  const double needed =
      std::pow(static_cast<double>(target) / static_cast<double>(count), 1.0 / static_cast<double>(passesLeft)) - 1;
  const double growth = std::clamp(needed, kMinGrowth, kMaxGrowth) * static_cast<double>(count);
  return std::min(target, count + static_cast<uint64_t>(std::ceil(growth)));
}

}  // namespace quor::gs
