// Adaptive density control (Kerbl et al. 2023, section 5): splats whose screen gradient is large become two, nearly
// transparent ones are pruned, and opacities are reset now and then. With a cap the candidates with the largest
// statistic come first. The paper clones small splats in place and splits large ones into two drawn at random, both
// with the old opacity. Here every splat is split alike, along its longest axis and so that the image hardly changes
// (splat_rows.h): what it showed is not shown twice until the optimiser has undone it, and less of it becomes fog
// (docs/quality.md).
#pragma once

#include <cstdint>

#include "base/split_mix64.h"
#include "gpu/compute/compute_stream.h"
#include "gs/render/renderer.h"
#include "gs/splats/splat_store.h"
#include "gs/train/train_job.h"

namespace quor::gs {

struct DensifyReport {
  uint64_t reset = 0;   // diverged splats
  uint64_t cloned = 0;  // split in two, up to the dense fraction of the scene extent in size
  uint64_t split = 0;   // and larger ones
  uint64_t pruned = 0;
};

class VanillaDensifier {
 public:
  // `extent` is the scene extent, `cap` the most splats there may be. The job must outlive the densifier.
  VanillaDensifier(VulkanContext& context, const TrainJob& job, double extent, uint64_t cap)
      : context_(context), job_(job), extent_(extent), cap_(cap) {}

  void setCap(uint64_t cap) { cap_ = cap; }

  // Records this view's statistics: the length of the screen mean's gradient in normalised device units, so that the
  // threshold means the same at every image size. After lossAndBackward of the same frame, whose gradients are lessened
  // for splats near the camera.
  void accumulate(ComputeStream& stream, const SplatStore& splats, const Renderer& renderer);

  // One pass; `pruneLarge` once opacities have been reset for the first time. Statistics start over.
  DensifyReport refine(ComputeStream& stream, Transfer& transfer, SplatStore& splats, SplitMix64& random,
                       bool pruneLarge);

  // Whether statistics have been recorded since the last pass.
  bool accumulated() const { return !startOver_; }

  // Opacities to at most twice the prune opacity; the group's moments become zero.
  void resetOpacities(Transfer& transfer, SplatStore& splats);

 private:
  std::vector<float> statistics(Transfer& transfer, uint32_t count) const;

  VulkanContext& context_;
  const TrainJob& job_;
  double extent_;
  uint64_t cap_;
  bool startOver_ = true;
  GpuBuffer sum_, views_;
};

}  // namespace quor::gs
