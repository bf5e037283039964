// The parts of the schedule that every technique shares: image size, active SH degree, exponential rates, and the
// values that a job leaves open. Steps are counted from 1 for the first one; "steps done" is 0 before it.
#pragma once

#include <cstdint>

#include "gs/train/train_job.h"

namespace quor::gs {

// Shorter runs have a schedule of their own.
inline constexpr int32_t kUsualSteps = 3000;

// The job with every invalid value brought into its range.
TrainJob withinRange(TrainJob job);
// withinRange(), and the automatic values (0) decided. In a run of fewer than kUsualSteps the steps of the schedule
// that are at their defaults (densifyFrom, refineEvery, shDegreeInterval, opacityResetEvery) shrink with the run, which
// would otherwise end before its first pass. Resolving a resolved job changes nothing.
TrainJob resolved(TrainJob job);

// From `start` to `end` over the iterations.
double exponentialRate(double start, double end, int stepsDone, int iterations);

// How many times the images are halved for the next step; 0 = full size.
int levelAt(const TrainJob& job, int stepsDone);

// Degree min(steps / interval, maximum); an interval of 0 or less means the maximum at once.
int shDegreeAt(const TrainJob& job, int stepsDone);

// Whether a pass with this period is due at the step; never with a period of 0 or less.
constexpr bool isEvery(int step, int period) {
  return period > 0 && step % period == 0;
}

}  // namespace quor::gs
