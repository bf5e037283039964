// How a technique steers training: how many splats there are to begin with and how opaque, which learning rates and
// regularisers a step uses, what happens around the optimiser, and the passes that add, move and remove splats. The
// trainer calls these hooks in the order of its step and knows no technique; a new one is a class here and a line in
// makeStrategy().
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "base/log/log_store.h"
#include "base/split_mix64.h"
#include "gpu/compute/compute_stream.h"
#include "gpu/memory/transfer.h"
#include "gs/files/checkpoint.h"
#include "gs/render/renderer.h"
#include "gs/splats/splat_store.h"
#include "gs/train/train_job.h"

namespace quor::gs {

// What the hooks work on. Belongs to the trainer.
struct TrainingState {
  ComputeStream& stream;
  Transfer& transfer;
  SplatStore& splats;
  const Renderer& renderer;  // of the step's frame
  SplitMix64& random;
  int stepsDone = 0;  // before the step in the hooks of a step, after it in refine()
};

class Strategy {
 public:
  // `job` is resolved (gs/train/schedule.h) and outlives the strategy; `extent` is the scene extent in world units,
  // `cap` the most splats there may be.
  Strategy(const TrainJob& job, double extent, uint64_t cap) : job_(job), extent_(extent), cap_(cap) {}
  virtual ~Strategy() = default;
  Strategy(const Strategy&) = delete;
  Strategy& operator=(const Strategy&) = delete;

  uint64_t cap() const { return cap_; }

  // The kernels that the hooks dispatch, to build ahead.
  virtual std::vector<std::string> kernels() const = 0;

  struct Seeds {
    uint64_t count;
    float opacity;  // activated
  };
  virtual Seeds seeds(uint64_t points) const = 0;
  // Rows to make room for when training begins with `count` splats.
  virtual uint64_t roomFor(uint64_t count) const = 0;

  struct Rates {
    double position;  // world units
    float opacity;
  };
  virtual Rates rates(int stepsDone) const = 0;
  virtual Renderer::Regularisers regularisers(uint32_t /*splats*/) const { return {}; }

  // Both only record. The first runs before the optimiser, with the gradients of the frame.
  virtual void afterBackward(const TrainingState& /*state*/) {}
  virtual void afterOptimiser(const TrainingState& /*state*/) {}
  // The pass that is due after the step, if any; writes its line to the log. When it throws OutOfGpuMemory the splats
  // are as before the pass, or as after it.
  virtual void refine(const TrainingState& state, LogStore& log) = 0;

  // The strategy's part of a checkpoint's header. restore() raises the cap to the checkpoint's splats.
  virtual void save(CheckpointHeader& header) const { header.capacity = cap_; }
  virtual void restore(const CheckpointHeader& header);
  // Whether a checkpoint taken now loses nothing that a later pass depends on.
  virtual bool nothingAccumulated(int /*stepsDone*/) const { return true; }

 protected:
  const TrainJob& job_;
  const double extent_;
  uint64_t cap_;
};

std::unique_ptr<Strategy> makeStrategy(const TrainJob& job, double extent, uint64_t cap);

// The beginning of a pass's line in the log; `reset` is its number of diverged splats.
std::string passLine(int step, uint64_t reset);

}  // namespace quor::gs
