#include "gpu/device/vulkan_context.h"

#include <stdexcept>

#include "base/desktop/registry.h"
#include "base/failures.h"
#include "base/files/paths.h"
#include "gpu/device/vulkan_struct.h"
#include "gpu/memory/gpu_buffer.h"

namespace quor::gs {
namespace {

VkPhysicalDevice choosePhysicalDevice(const std::vector<VkPhysicalDevice>& devices, const ContextOptions& options) {
  if (options.deviceIndex >= 0) {
    const auto index = static_cast<size_t>(options.deviceIndex);
    if (index >= devices.size()) throw std::runtime_error("Vulkan device index out of range");
    return devices[index];
  }
  VkPhysicalDevice best = VK_NULL_HANDLE;
  int32_t bestScore = -1;
  for (VkPhysicalDevice device : devices) {
    if (findComputeFamily(device, options.presentation) < 0) continue;
    const DeviceInfo info = queryDevice(device, options.forceFallbacks);
    if (info.apiVersion < VK_API_VERSION_1_1) continue;
    const int32_t score = deviceScore(info.deviceType, info.vramBytes);
    if (score > bestScore) {
      best = device;
      bestScore = score;
    }
  }
  if (best == VK_NULL_HANDLE) throw std::runtime_error("No Vulkan 1.1 GPU with a compute queue was found.");
  return best;
}

std::vector<const char*> deviceExtensions(VkPhysicalDevice device, const DeviceInfo& info, bool presentation) {
  std::vector<const char*> names;
  if (presentation) names.push_back(VK_KHR_SWAPCHAIN_EXTENSION_NAME);
  if (info.memoryBudget) names.push_back(VK_EXT_MEMORY_BUDGET_EXTENSION_NAME);
  if (hasDeviceExtension(device, "VK_KHR_portability_subset")) names.push_back("VK_KHR_portability_subset");
  if (info.floatAtomics) names.push_back(VK_EXT_SHADER_ATOMIC_FLOAT_EXTENSION_NAME);
  if (info.packedDot) names.push_back(VK_KHR_SHADER_INTEGER_DOT_PRODUCT_EXTENSION_NAME);
  return names;
}

VkDevice createDevice(VkPhysicalDevice device, const DeviceInfo& info, const QueuePlan& plan, bool presentation) {
  const std::array<float, 2> priorities = {1.0f, 1.0f};
  std::vector queues(1, vulkanStruct<VkDeviceQueueCreateInfo>(VK_STRUCTURE_TYPE_DEVICE_QUEUE_CREATE_INFO));
  queues[0].queueFamilyIndex = plan.mainFamily;
  queues[0].queueCount = 1;
  queues[0].pQueuePriorities = priorities.data();
  if (plan.computeFamily != plan.mainFamily) {
    queues.push_back(queues[0]);
    queues[1].queueFamilyIndex = plan.computeFamily;
  } else {
    queues[0].queueCount = plan.computeIndex + 1;
  }

  const std::vector<const char*> extensions = deviceExtensions(device, info, presentation);
  auto atomics = vulkanStruct<VkPhysicalDeviceShaderAtomicFloatFeaturesEXT>(
      VK_STRUCTURE_TYPE_PHYSICAL_DEVICE_SHADER_ATOMIC_FLOAT_FEATURES_EXT);
  atomics.shaderBufferFloat32AtomicAdd = VK_TRUE;
  auto packedDot = vulkanStruct<VkPhysicalDeviceShaderIntegerDotProductFeaturesKHR>(
      VK_STRUCTURE_TYPE_PHYSICAL_DEVICE_SHADER_INTEGER_DOT_PRODUCT_FEATURES_KHR);
  packedDot.shaderIntegerDotProduct = VK_TRUE;
  auto create = vulkanStruct<VkDeviceCreateInfo>(VK_STRUCTURE_TYPE_DEVICE_CREATE_INFO);
  if (info.floatAtomics) create.pNext = &atomics;
  if (info.packedDot) {
    packedDot.pNext = const_cast<void*>(create.pNext);
    create.pNext = &packedDot;
  }
  create.queueCreateInfoCount = static_cast<uint32_t>(queues.size());
  create.pQueueCreateInfos = queues.data();
  create.enabledExtensionCount = static_cast<uint32_t>(extensions.size());
  create.ppEnabledExtensionNames = extensions.data();
  VkDevice made = VK_NULL_HANDLE;
  check(vkCreateDevice(device, &create, nullptr, &made), "vkCreateDevice");
  return made;
}

}  // namespace

ContextOptions withEnvironment(ContextOptions options) {
  options.validation |= environmentFlag("QUOR_VALIDATION");
  options.forceFallbacks |= environmentFlag("QUOR_FORCE_FALLBACKS");
  options.deviceIndex = environmentInteger("QUOR_DEVICE").value_or(options.deviceIndex);
  return options;
}

VulkanContext::VulkanContext(const ContextOptions& asked)
    : options_(withEnvironment(asked)), instance_(options_.presentation, options_.validation) {
  physicalDevice_ = choosePhysicalDevice(instance_.devices(), options_);
  info_ = queryDevice(physicalDevice_, options_.forceFallbacks);
  const std::vector<VkQueueFamilyProperties> families = queueFamilies(physicalDevice_);
  const int32_t mainFamily = gs::findComputeFamily(families, options_.presentation);
  if (mainFamily < 0) throw std::runtime_error("The selected GPU has no suitable queue family.");
  const QueuePlan plan = planQueues(families, static_cast<uint32_t>(mainFamily), options_.presentation);
  mainFamily_ = plan.mainFamily;
  computeFamily_ = plan.computeFamily;
  timestampBits_ = families[computeFamily_].timestampValidBits;
  if (timestampBits_ == 0) info_.timestampPeriod = 0;
  vkGetPhysicalDeviceMemoryProperties(physicalDevice_, &memoryProperties_);

  device_ = createDevice(physicalDevice_, info_, plan, options_.presentation);
  vkGetDeviceQueue(device_, mainFamily_, 0, &mainQueue_);
  vkGetDeviceQueue(device_, computeFamily_, plan.computeIndex, &computeQueue_);
  if (!plan.shared()) computeLock_ = &ownComputeLock_;
}

VulkanContext::~VulkanContext() {
  vkDestroyDevice(device_, nullptr);
}

uint64_t VulkanContext::freeMemory() const {
  uint32_t heap = 0;
  uint64_t heapSize = 0;
  for (uint32_t i = 0; i < memoryProperties_.memoryHeapCount; ++i) {
    const VkMemoryHeap& candidate = memoryProperties_.memoryHeaps[i];
    if ((candidate.flags & VK_MEMORY_HEAP_DEVICE_LOCAL_BIT) && candidate.size > heapSize) {
      heap = i;
      heapSize = candidate.size;
    }
  }
  uint64_t limit = heapSize;
  uint64_t used = GpuBuffer::liveBytes();
  if (info_.memoryBudget) {
    auto budget = vulkanStruct<VkPhysicalDeviceMemoryBudgetPropertiesEXT>(
        VK_STRUCTURE_TYPE_PHYSICAL_DEVICE_MEMORY_BUDGET_PROPERTIES_EXT);
    auto properties =
        vulkanStruct<VkPhysicalDeviceMemoryProperties2>(VK_STRUCTURE_TYPE_PHYSICAL_DEVICE_MEMORY_PROPERTIES_2);
    properties.pNext = &budget;
    vkGetPhysicalDeviceMemoryProperties2(physicalDevice_, &properties);
    limit = budget.heapBudget[heap];
    used = budget.heapUsage[heap];
  }
  return limit > used ? limit - used : 0;
}

void check(VkResult result, const char* what) {
  if (result == VK_SUCCESS) return;
  std::string text = std::string(what) + " failed (VkResult " + std::to_string(static_cast<int>(result)) + ")";
  if (result == VK_ERROR_OUT_OF_DEVICE_MEMORY) text += ": out of GPU memory";
  if (result == VK_ERROR_OUT_OF_HOST_MEMORY) text += ": out of host memory";
  if (result == VK_ERROR_DEVICE_LOST) text += ": the GPU device was lost (driver reset or hang)";
  // Less work needs less of either memory.
  if (result == VK_ERROR_OUT_OF_DEVICE_MEMORY || result == VK_ERROR_OUT_OF_HOST_MEMORY) throw OutOfGpuMemory(text);
  if (result == VK_ERROR_DEVICE_LOST) throw DeviceLost(text);
  throw std::runtime_error(text);
}

std::vector<std::string> listImplicitLayers() {
  return registryValueNames("SOFTWARE\\Khronos\\Vulkan\\ImplicitLayers");
}

void applyLayerPolicy() {
  if (environmentFlag("QUOR_ALLOW_VULKAN_LAYERS")) return;
  setEnvironmentVariable("VK_LOADER_LAYERS_DISABLE", "~implicit~");
  setEnvironmentVariable("DISABLE_VULKAN_OBS_CAPTURE", "1");  // for loaders that do not know the other
}

}  // namespace quor::gs
