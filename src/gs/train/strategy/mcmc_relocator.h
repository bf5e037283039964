// The MCMC technique's passes on the set of splats (Kheradmand et al. 2024): dead splats move onto living ones, and the
// count grows towards its target, in a way that leaves the rendered image nearly as it was. The paper's new splats
// share one place and leave it slowly when they are opaque; here those that are added to grow are halves that lie
// apart, which gives short runs 1.8 dB (docs/quality.md). The noise and the regularisers belong to the step itself.
#pragma once

#include <cstdint>

#include "base/split_mix64.h"
#include "gpu/compute/compute_stream.h"
#include "gs/splats/splat_store.h"

namespace quor::gs {

struct RelocateReport {
  uint64_t reset = 0;  // diverged splats
  uint64_t relocated = 0;
  uint64_t grown = 0;
};

class McmcRelocator {
 public:
  explicit McmcRelocator(uint64_t cap) : cap_(cap) {}

  void setCap(uint64_t cap) { cap_ = cap; }

  // One pass, after which there are `wanted` splats, or as many as there were or the cap allows.
  RelocateReport refine(ComputeStream& stream, Transfer& transfer, SplatStore& splats, SplitMix64& random,
                        uint64_t wanted) const;

 private:
  uint64_t cap_;
};

// What each of `copies` splats that take the place of one of opacity `opacity` must be for the image to stay: its
// opacity, and the factor of its scales (equation 9 of the paper's appendix).
struct SharedSplat {
  double opacity;
  double scaleFactor;
};
SharedSplat shareSplat(double opacity, int copies);

}  // namespace quor::gs
