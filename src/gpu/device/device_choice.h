// Which device, queues and options a context takes: decisions on plain records, so that tests need no particular
// hardware.
#pragma once

#include <volk.h>

#include <cstdint>
#include <optional>
#include <span>
#include <string>

namespace quor::gs {

// The first family, in the driver's order, that computes (and draws, when asked); -1 when there is none.
int32_t findComputeFamily(std::span<const VkQueueFamilyProperties> families, bool needGraphics);

// Higher is better. The type outweighs any amount of memory; memory counts in units of 16 MiB up to just under 16 GiB.
int32_t deviceScore(VkPhysicalDeviceType type, uint64_t vramBytes);

// Where the compute queue comes from. It is the main queue itself when family and index are the main queue's.
struct QueuePlan {
  uint32_t mainFamily = 0;
  uint32_t computeFamily = 0;
  uint32_t computeIndex = 0;
  bool shared() const { return computeFamily == mainFamily && computeIndex == 0; }
};
// A window's drawing is kept apart from training where the device has queues to spare: a family that only computes,
// else a second queue of the main family. Without a window one queue does all.
QueuePlan planQueues(std::span<const VkQueueFamilyProperties> families, uint32_t mainFamily, bool presentation);

// An environment variable as a decimal integer; none when it is unset or does not begin with a number.
std::optional<int32_t> environmentInteger(const char* name);
bool environmentFlag(const char* name);  // a number other than 0

}  // namespace quor::gs
