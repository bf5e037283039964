// The training of one scene, one step after the other. Owns everything on the GPU that training needs; what the
// technique decides is its Strategy's. Not thread-safe; threads and reports belong to Engine and TrainingRun.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>

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
#include "gs/train/kernels/interfaces.h"
#include "gs/train/strategy/strategy.h"
#include "gs/train/train_job.h"

namespace quor::gs {

class Trainer {
 public:
  // `job` is resolved (gs/train/schedule.h); job and dataset outlive the trainer. Builds the kernels that are missing;
  // the scene is uploaded by start() or resume().
  Trainer(VulkanContext& context, KernelRegistry& registry, LogStore& log, const TrainJob& job, const Dataset& dataset,
          const Renderer::Variants& variants);

  // From the sparse points.
  void start();
  // From a checkpoint that the job continues (gs/train/resume.h); throws std::runtime_error when it cannot, or when the
  // checkpoint is of another scene.
  void resume(const Checkpoint& checkpoint);

  bool finished() const { return step_ >= job_.iterations; }
  // One optimisation step, and the pass on the set of splats when one is due. When it throws OutOfGpuMemory the splats
  // can still be downloaded, as they were after stepsDone() steps; the trainer can do nothing else any more.
  void step();

  int stepsDone() const { return step_; }
  uint64_t splats() const { return splats_.count(); }
  uint64_t cap() const { return strategy_->cap(); }
  // Moving average of the loss; NaN while unknown.
  float loss() const { return loss_; }

  // Copies the current splats to `scene` if it wants them.
  void show(LiveScene& scene);

  // In the scene's own degree (shDegree = the job's).
  GaussianSet download();
  // Everything that a resumed run needs, in host memory: in one piece, or the header alone with the arrays put into
  // `copy`, which is faster.
  Checkpoint checkpoint();
  CheckpointHeader checkpoint(SplatSnapshot& copy);
  // Whether a checkpoint taken now loses nothing: no gradient statistics are waiting for a pass.
  bool nothingAccumulated() const { return strategy_->nothingAccumulated(step_); }
  // `each` as in gs/train/evaluation.h.
  EvalResult evaluate(const std::atomic<bool>& cancel, const OnViewScored& each = {});

  ComputeStream& stream() { return stream_; }

 private:
  void prepare();
  TrainingState state();
  float nearPlane() const;
  CheckpointHeader header() const;
  void applyLevel();
  void optimise();
  void optimiseSh(const kernels::Adam::Push& adam, int degree);
  void refine();
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
  std::unique_ptr<Strategy> strategy_;

  int step_ = 0;
  ViewOrder order_;
  float loss_;
};

}  // namespace quor::gs
