// What changes with the step: learning rates, image size, active SH degree, and when the passes on the set of splats
// run. Steps are counted from 1 for the first one; "steps done" is 0 before it.
#pragma once

#include <cstdint>

#include "gs/train/train_job.h"

namespace quor::gs {

// The job with every value that makes no sense brought into its range and the automatic ones (0) decided.
TrainJob resolved(TrainJob job);

// Exponential from start to end over the iterations, times the scene extent.
double positionRate(const TrainJob& job, int stepsDone, double extent);

// Constant for Vanilla, exponential from opacityRate to mcmcOpacityRateEnd for MCMC: splats find their opacity early,
// and the relocation near the end is not drowned by it.
float opacityRate(const TrainJob& job, int stepsDone);

// How many times the images are halved for the next step; 0 = full size.
int levelAt(const TrainJob& job, int stepsDone);

// Degree min(steps / interval, maximum); an interval of 0 or less means the maximum at once.
int shDegreeAt(const TrainJob& job, int stepsDone);

// Of a resolved job, after `step` (counted from 1).
bool isVanillaRefineStep(const TrainJob& job, int step);
// Not in the last stretch before densification ends, so that the scene has time to recover.
bool isOpacityResetStep(const TrainJob& job, int step);
bool isMcmcRelocateStep(const TrainJob& job, int step);
bool isMcmcGrowStep(const TrainJob& job, int step);  // implies relocation
// The splats to have after the growth pass at `step`: 5 % more (Kheradmand et al. 2024), or, in a run too short for
// that to reach the target, what reaches it with the last pass, at most 15 % more. Never beyond the target.
uint64_t mcmcCountAfter(const TrainJob& job, int step, uint64_t count, uint64_t target);

}  // namespace quor::gs
