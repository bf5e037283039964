// Adaptive density control (Kerbl et al. 2023, section 5): splats with a large screen gradient become two, nearly
// transparent ones are pruned, and opacities are reset now and then. With a cap the candidates with the largest
// statistic come first. The paper clones small splats in place and splits large ones into two drawn at random, both
// with the old opacity. Here every splat is split the same way, along its longest axis and so that the image hardly
// changes (densification_edit.h): the optimiser need not first undo what is now shown twice, and less of it becomes fog
// (docs/quality.md).
#pragma once

#include <cstdint>

#include "gs/train/strategy/strategy.h"

namespace quor::gs {

struct DensifyReport {
  uint64_t reset = 0;   // diverged splats
  uint64_t cloned = 0;  // split in two, up to the dense fraction of the scene extent in size
  uint64_t split = 0;   // and larger ones
  uint64_t pruned = 0;
};

class AdaptiveDensity final : public Strategy {
 public:
  using Strategy::Strategy;

  std::vector<std::string> kernels() const override;
  Seeds seeds(uint64_t points) const override;
  uint64_t roomFor(uint64_t count) const override;
  Rates rates(int stepsDone) const override;
  // Records this view's statistics: the length of the screen mean's gradient in normalised device units, so that the
  // threshold means the same at every image size. Gradients of splats near the camera count less.
  void afterBackward(const TrainingState& state) override;
  void refine(const TrainingState& state, LogStore& log) override;
  void restore(const CheckpointHeader& header) override;
  bool nothingAccumulated(int stepsDone) const override;

  // One pass; `pruneLarge` once opacities have been reset for the first time. Statistics start over.
  DensifyReport densify(const TrainingState& state, bool pruneLarge);
  // Opacities to at most twice the prune opacity; the group's moments become zero.
  void resetOpacities(const TrainingState& state);

 private:
  std::vector<size_t> candidates(const std::vector<bool>& keep, const std::vector<float>& statistic) const;

  bool opacitiesWereReset_ = false;
  bool startOver_ = true;
  GpuBuffer sum_, views_, staging_;
};

// Of a resolved job, after `step` (counted from 1).
bool densifiesAt(const TrainJob& job, int step);
// Not in the last stretch before densification ends, so that the scene has time to recover.
bool resetsOpacitiesAt(const TrainJob& job, int step);
// Whether the run that wrote the checkpoint has had an opacity reset.
bool opacitiesWereReset(const TrainJob& job, const CheckpointHeader& header);

}  // namespace quor::gs
