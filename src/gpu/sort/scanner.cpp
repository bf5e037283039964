#include "gpu/sort/scanner.h"

#include <algorithm>
#include <stdexcept>

#include "gpu/kernels/interfaces.h"

namespace quor::gs {
namespace {

constexpr uint32_t kBlockItems = 1024;
constexpr uint32_t kBlockInvocations = 256;

template <class Count>
Count blocksOf(Count count) {
  return count / kBlockItems + (count % kBlockItems != 0 ? 1 : 0);
}

}  // namespace

void Scanner::reserve(size_t count) {
  uint64_t blocks = count;
  for (size_t level = 0;; ++level) {
    blocks = blocksOf(blocks);
    if (level == levels_.size()) levels_.emplace_back();
    if (levels_[level].size() < blocks * sizeof(uint32_t) || !levels_[level]) {
      levels_[level] = GpuBuffer();
      levels_[level] = GpuBuffer(context_, std::max<uint64_t>(blocks, 1024) * 6, BufferKind::Device, "scan_level");
    }
    if (blocks < 2) return;
  }
}

void Scanner::scan(ComputeStream& stream, const GpuBuffer& data, uint32_t count) {
  if (count == 0) return;
  uint32_t blocks = count;
  for (size_t level = 0; level == 0 || blocks > 1; ++level) {
    blocks = blocksOf(blocks);
    if (level >= levels_.size() || levels_[level].size() < uint64_t{blocks} * sizeof(uint32_t)) {
      throw std::logic_error("Scanner used beyond its reserved size; call reserve() before recording");
    }
  }
  scanLevel(stream, data, count, 0);
}

void Scanner::scanLevel(ComputeStream& stream, const GpuBuffer& data, uint32_t count, size_t level) {
  const uint32_t blocks = blocksOf(count);
  const GpuBuffer& totals = levels_[level];
  stream.dispatch1D(kernels::ScanBlock{.data = &data, .totals = &totals}, {count}, blocks * kBlockInvocations);
  if (blocks < 2) return;
  scanLevel(stream, totals, blocks, level + 1);
  stream.dispatch1D(kernels::ScanAdd{.data = &data, .offsets = &totals}, {count}, count);
}

}  // namespace quor::gs
