// The Vulkan instance and its debug messenger. Opens the loader on first use and counts what the validation layer says.
#pragma once

#include <volk.h>

#include <atomic>
#include <cstdint>
#include <string>
#include <vector>

namespace quor::gs {

class VulkanInstance {
 public:
  // Throws std::runtime_error when there is no loader or no driver. With `presentation` the surface extensions that the
  // loader offers are enabled, so that any window toolkit can make its surface.
  VulkanInstance(bool presentation, bool validation);
  ~VulkanInstance();
  VulkanInstance(const VulkanInstance&) = delete;
  VulkanInstance& operator=(const VulkanInstance&) = delete;

  VkInstance handle() const { return instance_; }
  std::vector<VkPhysicalDevice> devices() const;  // never empty: throws when there is none
  uint64_t messages() const { return messages_.load(); }

 private:
  void createMessenger();
  static VkBool32 VKAPI_PTR onMessage(VkDebugUtilsMessageSeverityFlagBitsEXT severity,
                                      VkDebugUtilsMessageTypeFlagsEXT types,
                                      const VkDebugUtilsMessengerCallbackDataEXT* data, void* self);

  VkInstance instance_ = VK_NULL_HANDLE;
  VkDebugUtilsMessengerEXT messenger_ = VK_NULL_HANDLE;
  std::atomic<uint64_t> messages_ = 0;
  std::string logPath_;  // file that each message is appended to; empty for none
};

}  // namespace quor::gs
