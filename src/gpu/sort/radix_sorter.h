// Stable least-significant-digit radix sort of 32-bit keys, each carrying a 32-bit value: four bits a pass on every
// device, or eight with ballots of subgroups of eight or more. reserve() on the host first.
#pragma once

#include <cstddef>
#include <cstdint>

#include "gpu/sort/scanner.h"

namespace quor::gs {

class RadixSorter {
 public:
  enum class Ranks { Scans, Ballots };
  explicit RadixSorter(VulkanContext& context, Ranks ranks = Ranks::Scans)
      : context_(context), ranks_(ranks), scanner_(context) {}

  void reserve(size_t count);
  // Sorts the first `count` pairs of A by the low keyBits bits, with B as partner; true when the result lies in B.
  bool sort(ComputeStream& stream, const GpuBuffer& keysA, const GpuBuffer& valuesA, const GpuBuffer& keysB,
            const GpuBuffer& valuesB, uint32_t count, uint32_t keyBits);

 private:
  VulkanContext& context_;
  const Ranks ranks_;
  Scanner scanner_;
  GpuBuffer histogram_;
};

}  // namespace quor::gs
