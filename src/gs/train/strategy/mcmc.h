// The MCMC technique (Kheradmand et al. 2024): a fixed budget of splats that explore by noise. Dead splats move onto
// living ones, and the count grows towards its target, in a way that leaves the rendered image nearly as it was. The
// paper's new splats share one place and leave it slowly when they are opaque; here the splats added to grow are halves
// that lie apart, which gives short runs 1.8 dB (docs/quality.md).
#pragma once

#include <cstdint>

#include "gs/train/strategy/strategy.h"

namespace quor::gs {

struct RelocateReport {
  uint64_t reset = 0;  // diverged splats
  uint64_t relocated = 0;
  uint64_t grown = 0;
};

class Mcmc final : public Strategy {
 public:
  Mcmc(const TrainJob& job, double extent, uint64_t cap);

  std::vector<std::string> kernels() const override;
  Seeds seeds(uint64_t points) const override;
  uint64_t roomFor(uint64_t count) const override;
  Rates rates(int stepsDone) const override;
  Renderer::Regularisers regularisers(uint32_t splats) const override;
  void afterOptimiser(const TrainingState& state) override;  // the noise
  void refine(const TrainingState& state, LogStore& log) override;
  void save(CheckpointHeader& header) const override;
  void restore(const CheckpointHeader& header) override;

  // One pass, after which there are `wanted` splats, or as many as there were or the cap allows.
  RelocateReport relocate(const TrainingState& state, uint64_t wanted);

  // Of the pass after `step` (counted from 1); growth implies relocation.
  bool relocatesAt(int step) const;
  bool growsAt(int step) const;
  // The splats to have after the pass at `step`: 5 % more (Kheradmand et al. 2024), or, in a run too short for that to
  // reach the target, as many as reach it with the last pass, at most 15 % more. Never beyond the target.
  uint64_t countAfter(int step, uint64_t count) const;

 private:
  long fractionOf(float fraction) const;

  uint64_t target_;
  GpuBuffer staging_;
};

// The opacity that each of `copies` splats needs to replace one of opacity `opacity` without changing the image, and
// the factor of their scales (equation 9 of the paper's appendix).
struct SharedSplat {
  double opacity;
  double scaleFactor;
};
SharedSplat shareSplat(double opacity, int copies);

}  // namespace quor::gs
