// One storage buffer with one allocation of its own. Movable, never copied; the context outlives it.
#pragma once

#include <volk.h>

#include <cstdint>
#include <string>
#include <string_view>

namespace quor::gs {

class VulkanContext;

enum class BufferKind : int32_t {
  Device = 0,    // device-local, for kernels
  Upload = 1,    // host-visible, mapped; also for a window's vertices
  Readback = 2,  // host-visible, cached where possible, mapped
};

class GpuBuffer {
 public:
  GpuBuffer() = default;  // no Vulkan buffer
  // Throws std::runtime_error when it is larger than one allocation may be or when memory is out. A size of 0 makes a
  // buffer without a Vulkan buffer.
  GpuBuffer(VulkanContext& context, uint64_t size, BufferKind kind, std::string_view name);
  ~GpuBuffer();
  GpuBuffer(GpuBuffer&& other) noexcept;
  GpuBuffer& operator=(GpuBuffer&& other) noexcept;

  VkBuffer handle() const { return buffer_; }
  explicit operator bool() const { return buffer_ != VK_NULL_HANDLE; }
  uint64_t size() const { return size_; }  // bytes, as asked
  const std::string& name() const { return name_; }
  void* mapped() const { return mapped_; }  // null for Device

  // Bytes of all live buffers of the process.
  static uint64_t liveBytes();

 private:
  void create(uint64_t size, BufferKind kind);
  void release() noexcept;

  VulkanContext* context_ = nullptr;
  VkBuffer buffer_ = VK_NULL_HANDLE;
  VkDeviceMemory memory_ = VK_NULL_HANDLE;
  uint64_t size_ = 0;
  std::string name_;
  void* mapped_ = nullptr;
};

// The first of the allowed memory types (a bit each) that has all wanted flags, else the first with the required ones.
uint32_t chooseMemoryType(const VkPhysicalDeviceMemoryProperties& memory, uint32_t allowed,
                          VkMemoryPropertyFlags required, VkMemoryPropertyFlags preferred);

}  // namespace quor::gs
