// The training of one scene: which splats, which view, one step after the other. Owns everything on the GPU that
// training needs. One thread's own; reports and threads are the Engine's business.
#pragma once

#include <cstdint>
#include <string>

#include "base/log/log_store.h"
#include "base/split_mix64.h"
#include "gpu/compute/compute_stream.h"
#include "gpu/compute/kernel_registry.h"
#include "gpu/memory/transfer.h"
#include "gs/data/dataset.h"
#include "gs/data/device_image_cache.h"
#include "gs/data/view_order.h"
#include "gs/files/checkpoint.h"
#include "gs/render/renderer.h"
#include "gs/splats/live_scene.h"
#include "gs/splats/splat_snapshot.h"
#include "gs/splats/splat_store.h"
#include "gs/train/evaluation.h"
#include "gs/train/strategy/mcmc_relocator.h"
#include "gs/train/strategy/vanilla_densifier.h"
#include "gs/train/train_job.h"

namespace quor::gs {

class Trainer {
 public:
  // `job` is resolved (gs/schedule.h); `dataset` outlives the trainer. Nothing is on the GPU before start() or
  // resume().
  Trainer(VulkanContext& context, KernelRegistry& registry, LogStore& log, const TrainJob& job, const Dataset& dataset);

  // From the sparse points.
  void start();
  // From a checkpoint that the job is the continuation of (gs/resume.h); throws std::runtime_error when it is not, or
  // is of another scene.
  void resume(const Checkpoint& checkpoint);

  bool finished() const { return step_ >= job_.iterations; }
  // One optimisation step, and the pass on the set of splats when one is due.
  void step();

  int stepsDone() const { return step_; }
  uint64_t splats() const { return splats_.count(); }
  uint64_t cap() const { return cap_; }
  // Moving average of the loss; NaN before it is known.
  float loss() const { return loss_; }

  // Lets `scene` have the splats as they are now, if it wants them.
  void show(LiveScene& scene);

  // In the scene's own degree (shDegree = the job's).
  GaussianSet download();
  // All of the state that a resumed run needs, in host memory: in one piece, or the header alone with the arrays put
  // into `copy`, which takes less time.
  Checkpoint checkpoint();
  CheckpointHeader checkpoint(SplatSnapshot& copy);
  // True when a checkpoint taken now loses nothing: there are no gradient statistics that a pass will ask for.
  bool nothingAccumulated() const;
  // `each` as in gs/evaluation.h.
  EvalResult evaluate(const std::atomic<bool>& cancel, const OnViewScored& each = {});

  ComputeStream& stream() { return stream_; }

 private:
  void prepare();
  CheckpointHeader header() const;
  void applyLevel();
  void optimise();
  void addNoise();
  void refine();
  void refineVanilla();
  void refineMcmc();
  Renderer::Regularisers regularisers() const;
  void updateLoss();

  LogStore& log_;
  const TrainJob& job_;
  const Dataset& dataset_;

  ComputeStream stream_;
  Transfer transfer_;
  SplatStore splats_;
  Renderer renderer_;
  DeviceImageCache photos_;
  SplitMix64 random_;
  uint64_t cap_ = 0;
  uint64_t mcmcTarget_ = 0;
  VanillaDensifier vanilla_;
  McmcRelocator mcmc_;

  int step_ = 0;
  bool opacitiesWereReset_ = false;
  ViewOrder order_;
  float loss_;
};

}  // namespace quor::gs
