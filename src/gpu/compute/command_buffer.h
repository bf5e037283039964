// One command buffer of the compute family with the fence that says when it is done. One thread's own.
#pragma once

#include <volk.h>

#include <cstdint>

namespace quor::gs {

class VulkanContext;

class CommandBuffer {
 public:
  explicit CommandBuffer(VulkanContext& context);
  ~CommandBuffer();
  CommandBuffer(const CommandBuffer&) = delete;
  CommandBuffer& operator=(const CommandBuffer&) = delete;

  VkCommandBuffer handle() const { return commands_; }

  void begin();
  // Ends, submits on the compute queue and waits; false when the time is up before the GPU has finished.
  bool finish(uint64_t timeoutNanoseconds);

  struct Scope {
    VkPipelineStageFlags stages;
    VkAccessFlags access;
  };
  void barrier(Scope from, Scope to);

 private:
  void release() noexcept;
  bool wait(uint64_t timeoutNanoseconds);

  VulkanContext& context_;
  VkCommandPool pool_ = VK_NULL_HANDLE;
  VkCommandBuffer commands_ = VK_NULL_HANDLE;
  VkFence fence_ = VK_NULL_HANDLE;
  bool pending_ = false;  // submitted and not known to have finished
};

}  // namespace quor::gs
