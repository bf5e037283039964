// A training run whose steps all cost the same, for the benches that time the trainer.
#pragma once

#include <climits>
#include <utility>

#include "bench_common.h"
#include "gs/files/checkpoint.h"
#include "gs/train/schedule.h"
#include "gs/train/train_job.h"

namespace quor::bench {

// The default technique's steps, with every learning rate zero and no pass on the set of splats: the work of a step,
// and the scene stays as it is.
inline gs::TrainJob steadyJob(const Size& size) {
  gs::TrainJob job;
  job.technique = gs::Technique::Mcmc;
  job.iterations = 30000;
  job.shDegree = size.degree;
  job.shDegreeInterval = 0;
  job.downscaleLevels = 0;
  job.densifyFrom = INT_MAX;
  job.splatBudget = job.mcmcTarget = size.splats;
  job.mcmcPositionRateStart = job.mcmcPositionRateEnd = job.opacityRate = job.mcmcOpacityRateEnd = 0;
  job.scaleRate = job.rotationRate = job.shDcRate = 0;
  return gs::resolved(job);
}

// A run of this technique that has come to these splats and knows no moments yet.
inline gs::Checkpoint checkpointOf(const gs::TrainJob& job, gs::GaussianSet set, double extent) {
  gs::Checkpoint checkpoint;
  checkpoint.header.technique = job.technique;
  checkpoint.header.count = checkpoint.header.mcmcTarget = set.count;
  checkpoint.header.sceneExtent = static_cast<float>(extent);
  for (size_t g = 0; g < gs::kGroupCount; ++g) {
    checkpoint.firstMoments[g].resize(set.count * gs::kGroupWidths[g]);
    checkpoint.secondMoments[g].resize(set.count * gs::kGroupWidths[g]);
  }
  checkpoint.set = std::move(set);
  return checkpoint;
}

}  // namespace quor::bench
