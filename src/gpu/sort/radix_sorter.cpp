#include "gpu/sort/radix_sorter.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

#include "gpu/kernels/interfaces.h"

namespace quor::gs {
namespace {

constexpr uint32_t kBlockInvocations = 256;

struct Shape {
  uint32_t digitBits, blockItems;
  uint32_t digits() const { return 1u << digitBits; }
  template <class Count>
  Count blocks(Count count) const {
    return count / blockItems + (count % blockItems != 0 ? 1 : 0);
  }
};

Shape shapeOf(RadixSorter::Ranks ranks) {
  return ranks == RadixSorter::Ranks::Ballots ? Shape{8, 2048} : Shape{4, 1024};
}

template <class Hist, class Scatter>
void recordPass(ComputeStream& stream, Scanner& scanner, const std::pair<const GpuBuffer*, const GpuBuffer*>& in,
                const std::pair<const GpuBuffer*, const GpuBuffer*>& out, const GpuBuffer& histogram,
                const typename Hist::Push& push, uint32_t entries) {
  const uint32_t invocations = push.blocks * kBlockInvocations;
  stream.dispatch1D(Hist{.keys = in.first, .histogram = &histogram}, push, invocations);
  scanner.scan(stream, histogram, entries);
  stream.dispatch1D(Scatter{.keysIn = in.first,
                            .valuesIn = in.second,
                            .keysOut = out.first,
                            .valuesOut = out.second,
                            .places = &histogram},
                    {push.count, push.shift, push.blocks}, invocations);
}

}  // namespace

void RadixSorter::reserve(size_t count) {
  const Shape shape = shapeOf(ranks_);
  const uint64_t entries = shape.blocks<uint64_t>(count) * shape.digits();
  if (!histogram_ || histogram_.size() < entries * sizeof(uint32_t)) {
    histogram_ = GpuBuffer();
    histogram_ = GpuBuffer(context_, std::max<uint64_t>(entries, 16384) * 6, BufferKind::Device, "radix_hist");
  }
  scanner_.reserve(entries);
}

bool RadixSorter::sort(ComputeStream& stream, const GpuBuffer& keysA, const GpuBuffer& valuesA, const GpuBuffer& keysB,
                       const GpuBuffer& valuesB, uint32_t count, uint32_t keyBits) {
  if (count < 2) return false;
  const Shape shape = shapeOf(ranks_);
  const uint32_t blocks = shape.blocks(count), entries = blocks * shape.digits();
  if (histogram_.size() < uint64_t{entries} * sizeof(uint32_t)) {
    throw std::logic_error("RadixSorter used beyond its reserved size");
  }
  const uint32_t passes = (std::min(keyBits, 32u) + shape.digitBits - 1) / shape.digitBits;
  std::pair in{&keysA, &valuesA};
  std::pair out{&keysB, &valuesB};
  for (uint32_t pass = 0; pass < passes; ++pass) {
    const uint32_t shift = pass * shape.digitBits;
    if (ranks_ == Ranks::Ballots) {
      recordPass<kernels::RadixBallotHist, kernels::RadixBallotScatter>(stream, scanner_, in, out, histogram_,
                                                                        {count, shift, blocks}, entries);
    } else {
      recordPass<kernels::RadixHist, kernels::RadixScatter>(stream, scanner_, in, out, histogram_,
                                                            {count, shift, blocks}, entries);
    }
    std::swap(in, out);
  }
  return passes % 2 == 1;
}

}  // namespace quor::gs
