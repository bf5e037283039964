#include "gpu/device/device_choice.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>

#include "base/files/paths.h"

namespace quor::gs {

int32_t findComputeFamily(std::span<const VkQueueFamilyProperties> families, bool needGraphics) {
  const VkQueueFlags needed = VK_QUEUE_COMPUTE_BIT | (needGraphics ? VkQueueFlags{VK_QUEUE_GRAPHICS_BIT} : 0u);
  for (size_t i = 0; i < families.size(); ++i) {
    if ((families[i].queueFlags & needed) == needed) return static_cast<int32_t>(i);
  }
  return -1;
}

int32_t deviceScore(VkPhysicalDeviceType type, uint64_t vramBytes) {
  const auto memory = static_cast<int32_t>(std::min<uint64_t>(vramBytes >> 24, 999));
  switch (type) {
    case VK_PHYSICAL_DEVICE_TYPE_DISCRETE_GPU:
      return 3000 + memory;
    case VK_PHYSICAL_DEVICE_TYPE_INTEGRATED_GPU:
      return 2000 + memory;
    case VK_PHYSICAL_DEVICE_TYPE_CPU:
      return memory;
    default:
      return 1000 + memory;
  }
}

QueuePlan planQueues(std::span<const VkQueueFamilyProperties> families, uint32_t mainFamily, bool presentation) {
  QueuePlan plan{mainFamily, mainFamily, 0};
  if (!presentation) return plan;
  constexpr VkQueueFlags kKinds = VK_QUEUE_GRAPHICS_BIT | VK_QUEUE_COMPUTE_BIT;
  for (size_t i = 0; i < families.size(); ++i) {
    if ((families[i].queueFlags & kKinds) == VK_QUEUE_COMPUTE_BIT) {
      plan.computeFamily = static_cast<uint32_t>(i);
      return plan;
    }
  }
  if (families[mainFamily].queueCount >= 2) plan.computeIndex = 1;
  return plan;
}

std::optional<int32_t> environmentInteger(const char* name) {
  const std::optional<std::string> text = environmentVariable(name);
  if (!text) return std::nullopt;
  char* end = nullptr;
  errno = 0;
  const long long value = std::strtoll(text->c_str(), &end, 10);
  if (end == text->c_str() || errno == ERANGE || value < INT32_MIN || value > INT32_MAX) return std::nullopt;
  return static_cast<int32_t>(value);
}

bool environmentFlag(const char* name) {
  return environmentInteger(name).value_or(0) != 0;
}

}  // namespace quor::gs
