// Stable radix sort of 32-bit keys, each carrying a 32-bit value, for software drivers: what RadixSorter does by blocks
// with barriers and shared memory is done here by runs, each walked by one invocation with counters of its own, eight
// bits a pass. reserve() on the host first. Any device can run it; with few runs only a processor is busy with them.
#pragma once

#include <cstdint>

#include "gpu/compute/compute_stream.h"
#include "gpu/memory/gpu_buffer.h"

namespace quor::gs {

class RunSorter {
 public:
  explicit RunSorter(VulkanContext& context) : context_(context) {}

  // Runs for so many items: enough to keep the cores busy, few enough that the table of counters, one column a run,
  // stays small.
  static uint32_t runsFor(uint32_t count) { return count < 65536 ? 32 : 128; }

  void reserve(uint32_t count);
  // As RadixSorter::sort.
  bool sort(ComputeStream& stream, const GpuBuffer& keysA, const GpuBuffer& valuesA, const GpuBuffer& keysB,
            const GpuBuffer& valuesB, uint32_t count, uint32_t keyBits);

 private:
  VulkanContext& context_;
  GpuBuffer table_, starts_;
};

}  // namespace quor::gs
