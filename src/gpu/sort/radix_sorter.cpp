#include "gpu/sort/radix_sorter.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

#include "gpu/kernels/interfaces.h"

namespace quor::gs {
namespace {

constexpr uint32_t kBlockItems = 1024;
constexpr uint32_t kBlockInvocations = 256;
constexpr uint32_t kDigitBits = 4;
constexpr uint32_t kDigits = 1u << kDigitBits;

template <class Count>
Count blocksOf(Count count) {
  return count / kBlockItems + (count % kBlockItems != 0 ? 1 : 0);
}

}  // namespace

void RadixSorter::reserve(size_t count) {
  const uint64_t entries = blocksOf<uint64_t>(count) * kDigits;
  if (!histogram_ || histogram_.size() < entries * sizeof(uint32_t)) {
    histogram_ = GpuBuffer();
    histogram_ = GpuBuffer(context_, std::max<uint64_t>(entries, 16384) * 6, BufferKind::Device, "radix_hist");
  }
  scanner_.reserve(entries);
}

bool RadixSorter::sort(ComputeStream& stream, const GpuBuffer& keysA, const GpuBuffer& valuesA, const GpuBuffer& keysB,
                       const GpuBuffer& valuesB, uint32_t count, uint32_t keyBits) {
  if (count < 2) return false;
  const uint32_t blocks = blocksOf(count);
  if (histogram_.size() < uint64_t{blocks} * kDigits * sizeof(uint32_t)) {
    throw std::logic_error("RadixSorter used beyond its reserved size");
  }
  const uint32_t passes = (std::min(keyBits, 32u) + kDigitBits - 1) / kDigitBits;
  std::pair in{&keysA, &valuesA};
  std::pair out{&keysB, &valuesB};
  for (uint32_t pass = 0; pass < passes; ++pass) {
    const uint32_t invocations = blocks * kBlockInvocations, shift = pass * kDigitBits;
    stream.dispatch1D(kernels::RadixHist{.keys = in.first, .histogram = &histogram_}, {count, shift, blocks},
                      invocations);
    scanner_.scan(stream, histogram_, blocks * kDigits);
    stream.dispatch1D(kernels::RadixScatter{.keysIn = in.first,
                                            .valuesIn = in.second,
                                            .keysOut = out.first,
                                            .valuesOut = out.second,
                                            .places = &histogram_},
                      {count, shift, blocks}, invocations);
    std::swap(in, out);
  }
  return passes % 2 == 1;
}

}  // namespace quor::gs
