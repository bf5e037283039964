// Blocking copies between host memory and buffers, through one reused staging buffer of at most 64 MiB. One thread's
// own.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>

#include "gpu/compute/command_buffer.h"
#include "gpu/memory/gpu_buffer.h"

namespace quor::gs {

class VulkanContext;

class Transfer {
 public:
  explicit Transfer(VulkanContext& context) : context_(context), commands_(context) {}

  // Offsets and sizes in bytes; a size of 0 does nothing. Past the end: std::runtime_error.
  // fill takes offsets in multiples of 4 and rounds its size up to one.
  void upload(GpuBuffer& dst, const void* src, size_t offset, size_t size);
  void download(const GpuBuffer& src, void* dst, size_t offset, size_t size);
  void fill(GpuBuffer& dst, uint32_t value, size_t offset, size_t size);

 private:
  void growStaging(size_t size);
  void run(const std::function<void(VkCommandBuffer)>& record);

  VulkanContext& context_;
  CommandBuffer commands_;
  GpuBuffer staging_;
};

}  // namespace quor::gs
