// In-place exclusive prefix sum of 32-bit unsigned integers, any length. reserve() on the host first; scan() only
// records.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "gpu/compute/compute_stream.h"
#include "gpu/memory/gpu_buffer.h"

namespace quor::gs {

class Scanner {
 public:
  explicit Scanner(VulkanContext& context) : context_(context) {}

  void reserve(size_t count);
  // Throws std::logic_error beyond the reserved size, before it records anything.
  void scan(ComputeStream& stream, const GpuBuffer& data, uint32_t count);

 private:
  void scanLevel(ComputeStream& stream, const GpuBuffer& data, uint32_t count, size_t level);

  VulkanContext& context_;
  std::vector<GpuBuffer>
      levels_;  // level k holds the totals of the 1024-item blocks of level k - 1, level 0 the data's
};

}  // namespace quor::gs
