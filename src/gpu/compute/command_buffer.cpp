#include "gpu/compute/command_buffer.h"

#include <mutex>

#include "gpu/device/vulkan_context.h"
#include "gpu/device/vulkan_struct.h"

namespace quor::gs {

CommandBuffer::CommandBuffer(VulkanContext& context) : context_(context) {
  const VkDevice device = context.device();
  auto poolInfo = vulkanStruct<VkCommandPoolCreateInfo>(VK_STRUCTURE_TYPE_COMMAND_POOL_CREATE_INFO);
  poolInfo.flags = VK_COMMAND_POOL_CREATE_RESET_COMMAND_BUFFER_BIT;
  poolInfo.queueFamilyIndex = context.computeFamily();
  const auto fenceInfo = vulkanStruct<VkFenceCreateInfo>(VK_STRUCTURE_TYPE_FENCE_CREATE_INFO);
  try {
    check(vkCreateCommandPool(device, &poolInfo, nullptr, &pool_), "vkCreateCommandPool");
    auto allocate = vulkanStruct<VkCommandBufferAllocateInfo>(VK_STRUCTURE_TYPE_COMMAND_BUFFER_ALLOCATE_INFO);
    allocate.commandPool = pool_;
    allocate.level = VK_COMMAND_BUFFER_LEVEL_PRIMARY;
    allocate.commandBufferCount = 1;
    check(vkAllocateCommandBuffers(device, &allocate, &commands_), "vkAllocateCommandBuffers");
    check(vkCreateFence(device, &fenceInfo, nullptr, &fence_), "vkCreateFence");
  } catch (...) {
    release();
    throw;
  }
}

CommandBuffer::~CommandBuffer() {
  // After a time-out the GPU may still be at work on what is about to go; it gets a last chance, then the program must
  // be able to end.
  constexpr uint64_t kLastChance = 10'000'000'000;
  if (pending_) vkWaitForFences(context_.device(), 1, &fence_, VK_TRUE, kLastChance);
  release();
}

void CommandBuffer::release() noexcept {
  vkDestroyFence(context_.device(), fence_, nullptr);
  vkDestroyCommandPool(context_.device(), pool_, nullptr);
}

void CommandBuffer::begin() {
  if (pending_) wait(UINT64_MAX);
  check(vkResetCommandBuffer(commands_, 0), "vkResetCommandBuffer");
  auto info = vulkanStruct<VkCommandBufferBeginInfo>(VK_STRUCTURE_TYPE_COMMAND_BUFFER_BEGIN_INFO);
  info.flags = VK_COMMAND_BUFFER_USAGE_ONE_TIME_SUBMIT_BIT;
  check(vkBeginCommandBuffer(commands_, &info), "vkBeginCommandBuffer");
}

bool CommandBuffer::finish(uint64_t timeoutNanoseconds) {
  check(vkEndCommandBuffer(commands_), "vkEndCommandBuffer");
  auto submit = vulkanStruct<VkSubmitInfo>(VK_STRUCTURE_TYPE_SUBMIT_INFO);
  submit.commandBufferCount = 1;
  submit.pCommandBuffers = &commands_;
  {
    const std::lock_guard lock(context_.computeLock());
    check(vkQueueSubmit(context_.computeQueue(), 1, &submit, fence_), "vkQueueSubmit");
  }
  pending_ = true;
  return wait(timeoutNanoseconds);
}

bool CommandBuffer::wait(uint64_t timeoutNanoseconds) {
  const VkResult result = vkWaitForFences(context_.device(), 1, &fence_, VK_TRUE, timeoutNanoseconds);
  if (result == VK_TIMEOUT) return false;
  pending_ = false;
  check(result, "vkWaitForFences");
  check(vkResetFences(context_.device(), 1, &fence_), "vkResetFences");
  return true;
}

void CommandBuffer::barrier(Scope from, Scope to) {
  auto memory = vulkanStruct<VkMemoryBarrier>(VK_STRUCTURE_TYPE_MEMORY_BARRIER);
  memory.srcAccessMask = from.access;
  memory.dstAccessMask = to.access;
  vkCmdPipelineBarrier(commands_, from.stages, to.stages, 0, 1, &memory, 0, nullptr, 0, nullptr);
}

}  // namespace quor::gs
