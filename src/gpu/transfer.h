// Blocking copies between host memory and buffers, through one reused staging buffer of at most 64 MiB. One thread's
// own.
#pragma once

#include <volk.h>

#include <cstddef>
#include <cstdint>

#include "gpu/gpu_buffer.h"

namespace quor::gs {

class VulkanContext;

class Transfer {
 public:
  explicit Transfer(VulkanContext& context);
  ~Transfer();
  Transfer(const Transfer&) = delete;
  Transfer& operator=(const Transfer&) = delete;

  // Offsets and sizes in bytes; a size of 0 does nothing. Past the end: std::runtime_error.
  void upload(GpuBuffer& dst, const void* src, size_t offset, size_t size);
  void download(const GpuBuffer& src, void* dst, size_t offset, size_t size);
  void fill(GpuBuffer& dst, uint32_t value, size_t offset, size_t size);

 private:
  VulkanContext& context_;
  VkCommandPool pool_ = VK_NULL_HANDLE;
  VkCommandBuffer commands_ = VK_NULL_HANDLE;
  VkFence fence_ = VK_NULL_HANDLE;
  GpuBuffer staging_;
};

}  // namespace quor::gs
