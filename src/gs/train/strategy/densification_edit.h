// The set of splats while a pass adds, moves and removes them: in host memory the groups that the pass decides by, and
// for every row the old row that it comes from. Colours and moments never leave the GPU; SplatStore::rearrange() moves
// them along.
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
  // Fetches the splats and the `statistics`, buffers of one float a splat, in one submission. `staging` is the caller's
  // to keep for the next pass: most of the time of a first fetch goes into getting its memory.
  static DensificationEdit fetch(ComputeStream& stream, const SplatStore& splats, GpuBuffer& staging,
                                 std::span<const BufferRef> statistics = {});

  size_t count() const { return sources.size(); }
  float opacity(size_t i) const;       // activated
  float largestScale(size_t i) const;  // activated
  void setOpacity(size_t i, float opacity);

  // Turns diverged splats, which have a parameter that is not a finite number, into faint copies of sound ones. Returns
  // their number; throws std::runtime_error when no sound splat is left.
  uint64_t resetDiverged(float opacity, SplitMix64& random);

  // Appends a copy of row i whose optimiser state starts afresh; returns its index.
  size_t appendCopy(size_t i);
  // Row i becomes a copy of row `from` whose optimiser state starts afresh.
  void copyOver(size_t i, size_t from);
  // Splits row i in two along its longest axis, into itself and a new row, whose index it returns; see splitOpacity().
  // Both keep the optimiser state of row i.
  size_t splitLongAxis(size_t i);
  void makeFresh(size_t i) { sources[i] |= kFreshRow; }
  void keepOnly(const std::vector<bool>& keep);

  // Rearranges the store to these rows, at most `cap`, and uploads what the pass may have changed. Throws
  // OutOfGpuMemory before anything is changed.
  void apply(ComputeStream& stream, Transfer& transfer, SplatStore& splats, uint64_t cap) const;

  std::vector<float> positions, scales, rotations, opacities;  // as stored: log scales, logits
  std::vector<uint32_t> sources;                               // see kFreshRow
  std::vector<std::vector<float>> statistics;                  // as fetched, by old row

 private:
  std::vector<uint32_t> diverged_;  // 1 = diverged, by old row
};

// The halves of a split lie this many standard deviations to either side of the old centre. Each has
// sqrt(1 - kSplitReach^2) of the old extent along the axis: together they have the old mean and covariance.
inline constexpr double kSplitReach = 0.5;
// The opacity of each half that lets as much light through the old centre as before; at most the whole's, which nearly
// opaque splats would exceed, and less than 1.
double splitOpacity(double opacity);

// Room to make when `needed` splats outgrow `current`: half more than either, at most the cap.
uint32_t grownCapacity(uint64_t needed, uint64_t current, uint64_t cap);

}  // namespace quor::gs
