#include "gpu/memory/gpu_buffer.h"

#include <atomic>
#include <stdexcept>
#include <utility>

#include "base/failures.h"
#include "gpu/device/vulkan_context.h"
#include "gpu/device/vulkan_struct.h"

namespace quor::gs {
namespace {

std::atomic<uint64_t> live_bytes = 0;

struct KindTraits {
  VkBufferUsageFlags usage;
  VkMemoryPropertyFlags required;
  VkMemoryPropertyFlags preferred;
};

KindTraits traitsOf(BufferKind kind) {
  constexpr VkBufferUsageFlags kCopies = VK_BUFFER_USAGE_TRANSFER_SRC_BIT | VK_BUFFER_USAGE_TRANSFER_DST_BIT;
  constexpr VkMemoryPropertyFlags kHost = VK_MEMORY_PROPERTY_HOST_VISIBLE_BIT | VK_MEMORY_PROPERTY_HOST_COHERENT_BIT;
  switch (kind) {
    case BufferKind::Upload:
      return {kCopies | VK_BUFFER_USAGE_VERTEX_BUFFER_BIT | VK_BUFFER_USAGE_INDEX_BUFFER_BIT, kHost, 0};
    case BufferKind::Readback:
      return {kCopies, kHost, VK_MEMORY_PROPERTY_HOST_CACHED_BIT};
    case BufferKind::Device:
      break;
  }
  return {VK_BUFFER_USAGE_STORAGE_BUFFER_BIT | kCopies, VK_MEMORY_PROPERTY_DEVICE_LOCAL_BIT, 0};
}

std::string megabytes(uint64_t bytes) {
  return std::to_string(bytes >> 20) + " MB";
}

}  // namespace

uint32_t chooseMemoryType(const VkPhysicalDeviceMemoryProperties& memory, uint32_t allowed,
                          VkMemoryPropertyFlags required, VkMemoryPropertyFlags preferred) {
  for (const VkMemoryPropertyFlags wanted : {required | preferred, required}) {
    for (uint32_t i = 0; i < memory.memoryTypeCount; ++i) {
      if ((allowed >> i & 1u) && (memory.memoryTypes[i].propertyFlags & wanted) == wanted) return i;
    }
  }
  throw std::runtime_error("No suitable Vulkan memory type");
}

GpuBuffer::GpuBuffer(VulkanContext& context, uint64_t size, BufferKind kind, std::string_view name)
    : context_(&context), name_(name) {
  const uint64_t limit = context.info().maxAllocationSize;
  if (size > limit) {
    throw std::runtime_error("Buffer '" + name_ + "' needs " + megabytes(size) +
                             ", above this GPU's single-allocation limit of " + megabytes(limit));
  }
  if (size == 0) return;
  try {
    create(size, kind);
  } catch (...) {
    release();
    throw;
  }
  size_ = size;
  live_bytes += size;
}

void GpuBuffer::create(uint64_t size, BufferKind kind) {
  const VkDevice device = context_->device();
  const KindTraits traits = traitsOf(kind);
  auto info = vulkanStruct<VkBufferCreateInfo>(VK_STRUCTURE_TYPE_BUFFER_CREATE_INFO);
  // Whole words, so that fills and kernels that read words reach the last byte of a buffer of packed bytes.
  const uint64_t words = (size + 3) & ~uint64_t{3};
  info.size = words <= context_->info().maxAllocationSize ? words : size;
  info.usage = traits.usage;
  check(vkCreateBuffer(device, &info, nullptr, &buffer_), "vkCreateBuffer");

  VkMemoryRequirements needs;
  vkGetBufferMemoryRequirements(device, buffer_, &needs);
  auto allocate = vulkanStruct<VkMemoryAllocateInfo>(VK_STRUCTURE_TYPE_MEMORY_ALLOCATE_INFO);
  allocate.allocationSize = needs.size;
  allocate.memoryTypeIndex =
      chooseMemoryType(context_->memoryProperties(), needs.memoryTypeBits, traits.required, traits.preferred);
  const uint64_t limit = context_->memoryLimit();
  const bool refused = limit > 0 && live_bytes + size > limit;
  if (refused || vkAllocateMemory(device, &allocate, nullptr, &memory_) != VK_SUCCESS) {
    memory_ = VK_NULL_HANDLE;
    throw OutOfGpuMemory("Out of GPU memory allocating '" + name_ + "' (" + megabytes(size) +
                         "). Lower the splat budget or the training resolution.");
  }
  check(vkBindBufferMemory(device, buffer_, memory_, 0), "vkBindBufferMemory");
  if (kind != BufferKind::Device) {
    check(vkMapMemory(device, memory_, 0, VK_WHOLE_SIZE, 0, &mapped_), "vkMapMemory");
  }
}

void GpuBuffer::release() noexcept {
  if (buffer_ == VK_NULL_HANDLE) return;
  vkDestroyBuffer(context_->device(), buffer_, nullptr);
  vkFreeMemory(context_->device(), memory_, nullptr);
  live_bytes -= size_;
  buffer_ = VK_NULL_HANDLE;
  memory_ = VK_NULL_HANDLE;
  mapped_ = nullptr;
  size_ = 0;
}

GpuBuffer::~GpuBuffer() {
  release();
}

GpuBuffer::GpuBuffer(GpuBuffer&& other) noexcept {
  *this = std::move(other);
}

GpuBuffer& GpuBuffer::operator=(GpuBuffer&& other) noexcept {
  if (this == &other) return *this;
  release();
  context_ = other.context_;
  buffer_ = std::exchange(other.buffer_, VK_NULL_HANDLE);
  memory_ = std::exchange(other.memory_, VK_NULL_HANDLE);
  size_ = std::exchange(other.size_, 0);
  mapped_ = std::exchange(other.mapped_, nullptr);
  name_ = std::move(other.name_);
  return *this;
}

uint64_t GpuBuffer::liveBytes() {
  return live_bytes.load();
}

}  // namespace quor::gs
