#include "gs/train/schedule.h"

#include <algorithm>
#include <cmath>

namespace quor::gs {
namespace {

float finiteIn(float value, float low, float high, float otherwise) {
  return std::isfinite(value) ? std::clamp(value, low, high) : otherwise;
}

// The passes come closer together than the run shrinks, but not in proportion: splats that are added need steps to
// settle, and as many as a long run ends with would cost a short one most of its time.
void shortenSchedule(TrainJob& job) {
  const TrainJob defaults;
  const double share = static_cast<double>(job.iterations) / kUsualSteps;
  const auto shorten = [&](int32_t TrainJob::*steps, double factor) {
    if (job.*steps != defaults.*steps) return;  // asked for
    job.*steps = std::max(1, static_cast<int32_t>(std::lround(factor * job.*steps)));
  };
  for (const auto steps : {&TrainJob::densifyFrom, &TrainJob::shDegreeInterval, &TrainJob::opacityResetEvery}) {
    shorten(steps, share);
  }
  shorten(&TrainJob::refineEvery, std::sqrt(share));
}

}  // namespace

TrainJob withinRange(TrainJob job) {
  job.iterations = std::max(job.iterations, 1);
  job.shDegree = std::clamp(job.shDegree, 0, kMaxShDegree);
  job.resolution = std::max(job.resolution, 0);
  job.downscaleLevels = std::clamp(job.downscaleLevels, 0, kMaxDownscales);
  job.refineEvery = std::max(job.refineEvery, 1);
  job.ssimWeight = finiteIn(job.ssimWeight, 0.0f, 1.0f, kTrainingDefaults.ssimWeight);
  for (float& channel : job.background) channel = finiteIn(channel, 0.0f, 1.0f, 0.0f);
  return job;
}

TrainJob resolved(TrainJob job) {
  job = withinRange(job);
  if (job.iterations < kUsualSteps) shortenSchedule(job);
  if (job.stepsPerLevel <= 0) {
    const int third = job.iterations / 3;
    job.stepsPerLevel = std::max(job.technique == Technique::Vanilla ? std::min(third, 3000) : third, 1);
  }
  if (job.densifyUntil <= 0) job.densifyUntil = std::min(std::max(job.iterations / 2, 1), 15000);
  if (job.splatBudget > 0) job.mcmcTarget = std::min(job.mcmcTarget, job.splatBudget);
  return job;
}

double exponentialRate(double start, double end, int stepsDone, int iterations) {
  return start * std::pow(end / std::max(start, 1e-12), static_cast<double>(stepsDone) / iterations);
}

int levelAt(const TrainJob& job, int stepsDone) {
  return std::max(job.finestLevel, job.downscaleLevels - stepsDone / std::max(job.stepsPerLevel, 1));
}

int shDegreeAt(const TrainJob& job, int stepsDone) {
  if (job.shDegreeInterval <= 0) return job.shDegree;
  return std::min(std::max(stepsDone, 0) / job.shDegreeInterval, job.shDegree);
}

}  // namespace quor::gs
