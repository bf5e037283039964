#include <algorithm>
#include <cstring>
#include <vector>

#include "gpu/device/device_choice.h"
#include "gpu/device/vulkan_context.h"
#include "gpu/device/vulkan_instance.h"
#include "gpu/device/vulkan_struct.h"

namespace quor::gs {
namespace {

uint64_t largestDeviceHeap(VkPhysicalDevice device) {
  VkPhysicalDeviceMemoryProperties memory;
  vkGetPhysicalDeviceMemoryProperties(device, &memory);
  uint64_t largest = 0;
  for (uint32_t i = 0; i < memory.memoryHeapCount; ++i) {
    if (memory.memoryHeaps[i].flags & VK_MEMORY_HEAP_DEVICE_LOCAL_BIT) {
      largest = std::max<uint64_t>(largest, memory.memoryHeaps[i].size);
    }
  }
  return largest;
}

bool canReduceInSubgroups(const VkPhysicalDeviceSubgroupProperties& subgroup) {
  constexpr VkSubgroupFeatureFlags kNeeded =
      VK_SUBGROUP_FEATURE_BASIC_BIT | VK_SUBGROUP_FEATURE_VOTE_BIT | VK_SUBGROUP_FEATURE_ARITHMETIC_BIT;
  return (subgroup.supportedStages & VK_SHADER_STAGE_COMPUTE_BIT) &&
         (subgroup.supportedOperations & kNeeded) == kNeeded;
}

bool hasFloatAtomics(VkPhysicalDevice device) {
  if (!hasDeviceExtension(device, VK_EXT_SHADER_ATOMIC_FLOAT_EXTENSION_NAME)) return false;
  auto atomics = vulkanStruct<VkPhysicalDeviceShaderAtomicFloatFeaturesEXT>(
      VK_STRUCTURE_TYPE_PHYSICAL_DEVICE_SHADER_ATOMIC_FLOAT_FEATURES_EXT);
  auto features = vulkanStruct<VkPhysicalDeviceFeatures2>(VK_STRUCTURE_TYPE_PHYSICAL_DEVICE_FEATURES_2);
  features.pNext = &atomics;
  vkGetPhysicalDeviceFeatures2(device, &features);
  return atomics.shaderBufferFloat32AtomicAdd == VK_TRUE;
}

void queryPackedDot(VkPhysicalDevice device, DeviceInfo& info) {
  if (!hasDeviceExtension(device, VK_KHR_SHADER_INTEGER_DOT_PRODUCT_EXTENSION_NAME)) return;
  auto dotFeatures = vulkanStruct<VkPhysicalDeviceShaderIntegerDotProductFeaturesKHR>(
      VK_STRUCTURE_TYPE_PHYSICAL_DEVICE_SHADER_INTEGER_DOT_PRODUCT_FEATURES_KHR);
  auto features = vulkanStruct<VkPhysicalDeviceFeatures2>(VK_STRUCTURE_TYPE_PHYSICAL_DEVICE_FEATURES_2);
  features.pNext = &dotFeatures;
  vkGetPhysicalDeviceFeatures2(device, &features);
  auto dotProperties = vulkanStruct<VkPhysicalDeviceShaderIntegerDotProductPropertiesKHR>(
      VK_STRUCTURE_TYPE_PHYSICAL_DEVICE_SHADER_INTEGER_DOT_PRODUCT_PROPERTIES_KHR);
  auto properties = vulkanStruct<VkPhysicalDeviceProperties2>(VK_STRUCTURE_TYPE_PHYSICAL_DEVICE_PROPERTIES_2);
  properties.pNext = &dotProperties;
  vkGetPhysicalDeviceProperties2(device, &properties);
  info.packedDot = dotFeatures.shaderIntegerDotProduct == VK_TRUE;
  info.fastPackedDot = info.packedDot && dotProperties.integerDotProduct4x8BitPackedUnsignedAccelerated == VK_TRUE;
}

// What needs Vulkan 1.1 to be asked.
void queryProperties2(VkPhysicalDevice device, DeviceInfo& info) {
  auto subgroup =
      vulkanStruct<VkPhysicalDeviceSubgroupProperties>(VK_STRUCTURE_TYPE_PHYSICAL_DEVICE_SUBGROUP_PROPERTIES);
  auto maintenance =
      vulkanStruct<VkPhysicalDeviceMaintenance3Properties>(VK_STRUCTURE_TYPE_PHYSICAL_DEVICE_MAINTENANCE_3_PROPERTIES);
  auto driver = vulkanStruct<VkPhysicalDeviceDriverProperties>(VK_STRUCTURE_TYPE_PHYSICAL_DEVICE_DRIVER_PROPERTIES);
  auto properties = vulkanStruct<VkPhysicalDeviceProperties2>(VK_STRUCTURE_TYPE_PHYSICAL_DEVICE_PROPERTIES_2);
  properties.pNext = &subgroup;
  subgroup.pNext = &maintenance;
  const bool namesDriver =
      info.apiVersion >= VK_API_VERSION_1_2 && hasDeviceExtension(device, VK_KHR_DRIVER_PROPERTIES_EXTENSION_NAME);
  if (namesDriver) maintenance.pNext = &driver;
  vkGetPhysicalDeviceProperties2(device, &properties);

  if (namesDriver) info.driver = std::string(driver.driverName) + " " + driver.driverInfo;
  info.maxAllocationSize = maintenance.maxMemoryAllocationSize;
  info.subgroupSize = subgroup.subgroupSize;
  info.subgroupReduce = canReduceInSubgroups(subgroup);
  constexpr VkSubgroupFeatureFlags kShuffle = VK_SUBGROUP_FEATURE_BALLOT_BIT | VK_SUBGROUP_FEATURE_SHUFFLE_BIT;
  info.subgroupShuffle = info.subgroupReduce && (subgroup.supportedOperations & kShuffle) == kShuffle;
  info.floatAtomics = hasFloatAtomics(device);
  queryPackedDot(device, info);
}

}  // namespace

bool hasDeviceExtension(VkPhysicalDevice device, const char* name) {
  uint32_t count = 0;
  check(vkEnumerateDeviceExtensionProperties(device, nullptr, &count, nullptr), "vkEnumerateDeviceExtensionProperties");
  std::vector<VkExtensionProperties> listed(count);
  check(vkEnumerateDeviceExtensionProperties(device, nullptr, &count, listed.data()),
        "vkEnumerateDeviceExtensionProperties");
  return std::any_of(listed.begin(), listed.end(), [name](const VkExtensionProperties& extension) {
    return std::strcmp(extension.extensionName, name) == 0;
  });
}

std::vector<VkQueueFamilyProperties> queueFamilies(VkPhysicalDevice device) {
  uint32_t count = 0;
  vkGetPhysicalDeviceQueueFamilyProperties(device, &count, nullptr);
  std::vector<VkQueueFamilyProperties> families(count);
  vkGetPhysicalDeviceQueueFamilyProperties(device, &count, families.data());
  return families;
}

int32_t findComputeFamily(VkPhysicalDevice device, bool needGraphics) {
  return findComputeFamily(queueFamilies(device), needGraphics);
}

DeviceInfo queryDevice(VkPhysicalDevice device, bool forceFallbacks) {
  VkPhysicalDeviceProperties properties;
  vkGetPhysicalDeviceProperties(device, &properties);
  DeviceInfo info;
  info.name = properties.deviceName;
  info.vendorId = properties.vendorID;
  info.apiVersion = properties.apiVersion;
  info.deviceType = properties.deviceType;
  info.vramBytes = largestDeviceHeap(device);
  const VkPhysicalDeviceLimits& limits = properties.limits;
  info.maxStorageBufferRange = limits.maxStorageBufferRange;
  std::copy_n(limits.maxComputeWorkGroupCount, 3, info.maxComputeWorkGroupCount.begin());
  info.maxKernelBuffers = std::min(
      {limits.maxPerStageDescriptorStorageBuffers, limits.maxDescriptorSetStorageBuffers, limits.maxPerStageResources});
  info.maxGroupInvocations = limits.maxComputeWorkGroupInvocations;
  std::copy_n(limits.maxComputeWorkGroupSize, 3, info.maxGroupSize.begin());
  info.maxSharedBytes = limits.maxComputeSharedMemorySize;
  info.memoryBudget = hasDeviceExtension(device, VK_EXT_MEMORY_BUDGET_EXTENSION_NAME);
  if (info.apiVersion >= VK_API_VERSION_1_1) queryProperties2(device, info);
  if (info.maxAllocationSize == 0) info.maxAllocationSize = uint64_t{1} << 30;

  const std::vector<VkQueueFamilyProperties> families = queueFamilies(device);
  const int32_t family = findComputeFamily(families, false);
  if (family >= 0 && families[static_cast<size_t>(family)].timestampValidBits > 0) {
    info.timestampPeriod = limits.timestampPeriod;
  }
  if (forceFallbacks) {
    info.floatAtomics = info.subgroupReduce = info.subgroupShuffle = info.packedDot = info.fastPackedDot = false;
  }
  return info;
}

std::string describe(const DeviceInfo& info) {
  const uint32_t version = info.apiVersion;
  return info.name + " — Vulkan " + std::to_string(VK_API_VERSION_MAJOR(version)) + "." +
         std::to_string(VK_API_VERSION_MINOR(version)) + "." + std::to_string(VK_API_VERSION_PATCH(version)) + ", " +
         std::to_string(info.vramBytes >> 20) + " MB VRAM, subgroup " + std::to_string(info.subgroupSize) +
         ", float atomics " + (info.floatAtomics ? "native" : "emulated") + ", subgroup reduce " +
         (info.subgroupReduce ? "yes" : "no");
}

std::vector<DeviceInfo> listDevices() {
  const VulkanInstance instance(false, false);
  const bool forceFallbacks = environmentFlag("QUOR_FORCE_FALLBACKS");
  std::vector<DeviceInfo> infos;
  for (VkPhysicalDevice device : instance.devices()) infos.push_back(queryDevice(device, forceFallbacks));
  return infos;
}

}  // namespace quor::gs
