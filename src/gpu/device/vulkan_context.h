// The Vulkan instance, device and queues of the process, and what the device can do. Made once and handed by reference
// to every user of the GPU; read-only afterwards but for the two submission locks. The loader is opened at run time, so
// a program without Vulkan starts and can say so.
#pragma once

#include <volk.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

#include "gpu/device/device_choice.h"
#include "gpu/device/vulkan_instance.h"

namespace quor::gs {

struct ContextOptions {
  bool presentation = false;    // must also draw a window
  int32_t deviceIndex = -1;     // into the physical-device list, negative = automatic
  bool validation = false;      // ask for the Khronos validation layer
  bool forceFallbacks = false;  // act as if float atomics and subgroup reduction were missing
};

struct DeviceInfo {
  std::string name;
  std::string driver;
  uint32_t vendorId = 0;
  uint32_t apiVersion = 0;
  VkPhysicalDeviceType deviceType = VK_PHYSICAL_DEVICE_TYPE_OTHER;
  uint64_t vramBytes = 0;  // largest device-local heap
  uint64_t maxAllocationSize = 0;
  uint32_t maxStorageBufferRange = 0;
  std::array<uint32_t, 3> maxComputeWorkGroupCount = {65535, 65535, 65535};
  // What one kernel may use. Before the query these are what every device offers.
  uint32_t maxKernelBuffers = 4;  // storage buffers bound at once
  uint32_t maxGroupInvocations = 128;
  std::array<uint32_t, 3> maxGroupSize = {128, 128, 64};
  uint32_t maxSharedBytes = 16384;  // of a work group
  uint32_t subgroupSize = 128;
  bool floatAtomics = false;
  bool subgroupReduce = false;
  bool subgroupShuffle = false;  // subgroupReduce, ballots and shuffles
  bool packedDot = false;        // dot products of packed bytes: integers of 8 bits, four to a word
  bool fastPackedDot = false;    // and in hardware
  bool memoryBudget = false;
  float timestampPeriod = 0;  // nanoseconds a tick; 0 when the compute queue has no timestamps
};

// The options as the environment changes them: QUOR_VALIDATION and QUOR_FORCE_FALLBACKS turn theirs on, QUOR_DEVICE
// replaces the index. A variable that holds no number changes nothing.
ContextOptions withEnvironment(ContextOptions options);

class VulkanContext {
 public:
  // Applies the environment to the options. Throws std::runtime_error with a whole sentence.
  explicit VulkanContext(const ContextOptions& options);
  ~VulkanContext();
  VulkanContext(const VulkanContext&) = delete;
  VulkanContext& operator=(const VulkanContext&) = delete;

  VkInstance instance() const { return instance_.handle(); }
  VkPhysicalDevice physicalDevice() const { return physicalDevice_; }
  VkDevice device() const { return device_; }
  VkQueue mainQueue() const { return mainQueue_; }
  VkQueue computeQueue() const { return computeQueue_; }
  uint32_t mainFamily() const { return mainFamily_; }
  uint32_t computeFamily() const { return computeFamily_; }
  const DeviceInfo& info() const { return info_; }
  const VkPhysicalDeviceMemoryProperties& memoryProperties() const { return memoryProperties_; }

  std::mutex& mainLock() { return mainLock_; }
  std::mutex& computeLock() { return *computeLock_; }  // the main lock itself when there is one queue
  bool sharedQueue() const { return computeLock_ == &mainLock_; }

  // Meaningful low bits of a timestamp of the compute queue; 0 when it has none.
  uint32_t timestampBits() const { return timestampBits_; }

  // Bytes of device-local memory that this process may still take: from the memory budget where the device reports one,
  // else the largest device-local heap less what GpuBuffers hold.
  uint64_t freeMemory() const;

  // Refuses buffers that would make this process hold more than so many bytes, as a full device does; 0 = no limit. For
  // trying out how work ends when GPU memory runs out. From any thread.
  void limitMemory(uint64_t bytes) { memoryLimit_ = bytes; }
  uint64_t memoryLimit() const { return memoryLimit_; }

  // Messages of the validation layer (warnings and errors) since the context was made.
  uint64_t validationMessages() const { return instance_.messages(); }

 private:
  ContextOptions options_;
  VulkanInstance instance_;
  VkPhysicalDevice physicalDevice_ = VK_NULL_HANDLE;
  VkDevice device_ = VK_NULL_HANDLE;
  VkQueue mainQueue_ = VK_NULL_HANDLE;
  VkQueue computeQueue_ = VK_NULL_HANDLE;
  uint32_t computeFamily_ = 0;
  uint32_t mainFamily_ = 0;
  uint32_t timestampBits_ = 0;
  DeviceInfo info_;
  std::atomic<uint64_t> memoryLimit_ = 0;
  VkPhysicalDeviceMemoryProperties memoryProperties_ = {};
  std::mutex mainLock_;
  std::mutex ownComputeLock_;
  std::mutex* computeLock_ = &mainLock_;
};

DeviceInfo queryDevice(VkPhysicalDevice device, bool forceFallbacks);
int32_t findComputeFamily(VkPhysicalDevice device, bool needGraphics);
std::vector<VkQueueFamilyProperties> queueFamilies(VkPhysicalDevice device);
bool hasDeviceExtension(VkPhysicalDevice device, const char* name);
// One line for a person: "NAME — Vulkan 1.3.280, 8192 MB VRAM, subgroup 32, float atomics native, subgroup reduce yes".
std::string describe(const DeviceInfo& info);

// The devices in the order of the `devices` command; makes and destroys an instance of its own.
std::vector<DeviceInfo> listDevices();

// Turns a failed result into OutOfGpuMemory, DeviceLost or std::runtime_error: "WHAT failed (VkResult N)" and a hint.
void check(VkResult result, const char* what);

std::vector<std::string> listImplicitLayers();
// Keeps overlays and recorders out of the process; called first thing in main, before the loader is used.
void applyLayerPolicy();

}  // namespace quor::gs
