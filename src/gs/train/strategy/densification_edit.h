// The set of splats as a pass that adds, moves and removes splats works on it: the groups it decides by in host memory,
// and for every row the old row that it comes from. Colours and moments never leave the GPU; they follow by
// SplatStore::rearrange().
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "base/split_mix64.h"
#include "gpu/compute/compute_stream.h"
#include "gs/splats/splat_store.h"

namespace quor::gs {

class DensificationEdit {
 public:
  static DensificationEdit download(Transfer& transfer, const SplatStore& splats);

  size_t count() const { return sources.size(); }
  float opacity(size_t i) const;       // activated
  float largestScale(size_t i) const;  // activated
  void setOpacity(size_t i, float opacity);

  // Appends a copy of row i whose optimiser state starts afresh; returns its index.
  size_t appendCopy(size_t i);
  // Row i becomes a copy of row `from`, afresh.
  void copyOver(size_t i, size_t from);
  // Splits row i in two along its longest axis, into itself and a new row, whose index it returns; see splitOpacity().
  // Both keep the optimiser state that row i has until makeFresh().
  size_t splitLongAxis(size_t i);
  void makeFresh(size_t i) { sources[i] |= kFreshRow; }
  void keepOnly(const std::vector<bool>& keep);

  // Rearranges the store to these rows and uploads what the pass may have changed.
  void apply(ComputeStream& stream, Transfer& transfer, SplatStore& splats, uint64_t cap) const;

  std::vector<float> positions, scales, rotations, opacities;  // as stored: log scales, logits
  std::vector<uint32_t> sources;                               // see kFreshRow
};

// A split along an axis puts the halves so many standard deviations to either side of the old centre, each with
// sqrt(1 - kSplitReach^2) of its extent along the axis: together they have its mean and covariance.
inline constexpr double kSplitReach = 0.5;
// What each half's opacity must be for as much light to pass through the old centre as before, but no more than the
// whole's, which nearly opaque splats would take, and less than 1.
double splitOpacity(double opacity);

// Puts splats right that have a parameter which is no finite number: each becomes a faint copy of a sound one. Returns
// their number; throws std::runtime_error when no sound splat is left.
uint64_t resetDiverged(ComputeStream& stream, Transfer& transfer, const SplatStore& splats, DensificationEdit& rows,
                       float opacity, SplitMix64& random);

// Room to make when `needed` splats outgrow `current`: half more than either, at most the cap.
uint32_t grownCapacity(uint64_t needed, uint64_t current, uint64_t cap);

}  // namespace quor::gs
