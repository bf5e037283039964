// The MCMC technique's passes on the set of splats (Kheradmand et al. 2024): dead splats move onto living ones, and the
// count grows towards its target, in a way that leaves the rendered image as it was. The noise and the regularisers
// belong to the step itself.
#pragma once

#include <cstdint>

#include "base/split_mix64.h"
#include "gpu/compute_stream.h"
#include "gs/splat_store.h"
#include "gs/train_job.h"

namespace quor::gs {

struct RelocateReport {
  uint64_t reset = 0;  // diverged splats
  uint64_t relocated = 0;
  uint64_t grown = 0;
};

class McmcRelocator {
 public:
  // The job must outlive the relocator.
  McmcRelocator(const TrainJob& job, uint64_t cap) : job_(job), cap_(cap) {}

  void setCap(uint64_t cap) { cap_ = cap; }

  // One pass; with `grow` the count grows by 5 % towards `target`.
  RelocateReport refine(ComputeStream& stream, Transfer& transfer, SplatStore& splats, SplitMix64& random, bool grow,
                        uint64_t target) const;

 private:
  const TrainJob& job_;
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
