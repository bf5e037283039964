#include "gs/splats/splat_cap.h"

#include <algorithm>
#include <stdexcept>

#include "base/text/text.h"
#include "gs/render/renderer.h"
#include "gs/splats/splat_store.h"

namespace quor::gs {
namespace {

constexpr double kMemoryShare = 0.85;
// A tile instance takes 12 bytes and room for a quarter more; ten a splat is a dense view.
constexpr uint64_t kInstanceBytesPerSplat = 150;
constexpr uint64_t kBytesPerSplat =
    SplatStore::kTrainingBytesPerSplat + kRendererBytesPerSplat + kInstanceBytesPerSplat;
constexpr uint64_t kMaxGroupBytes = kGroupWidths[kShRest] * sizeof(float);
constexpr uint64_t kMinSplats = 1000;
// A row's index keeps its top bit free.
constexpr uint64_t kMaxByIndex = UINT32_MAX / kGroupWidths[kShRest];
constexpr uint64_t kSsimPlaneBytesPerPixel = 15 * sizeof(float);

}  // namespace

DeviceLimits deviceLimits(const VulkanContext& context) {
  return {context.freeMemory(), context.info().maxAllocationSize, context.info().maxStorageBufferRange};
}

SplatCap splatCap(const DeviceLimits& limits, uint64_t budget, uint64_t reserved, uint64_t viewerBytes) {
  const uint64_t usable = static_cast<uint64_t>(kMemoryShare * static_cast<double>(limits.freeMemory));
  const uint64_t byMemory = (usable > reserved ? usable - reserved : 0) / (kBytesPerSplat + viewerBytes);
  const uint64_t byBuffer = std::min(limits.maxAllocation, limits.maxStorageRange) / kMaxGroupBytes;
  const uint64_t device = std::min({byMemory, byBuffer, kMaxByIndex});
  if (device < kMinSplats) {
    throw std::runtime_error(
        "The GPU has too little free memory to train. Close other programs that use it, or lower the training "
        "resolution.");
  }
  const std::string limit = byMemory <= byBuffer ? formatText("its %llu MB of free memory",
                                                              static_cast<unsigned long long>(limits.freeMemory >> 20))
                                                 : "the largest buffer that it can use";
  const auto number = [](uint64_t n) { return formatText("%llu", static_cast<unsigned long long>(n)); };
  if (budget == 0) return {device, "This GPU can train up to " + number(device) + " splats, limited by " + limit + "."};
  if (budget <= device) return {budget, "The scene may have up to " + number(budget) + " splats, as asked."};
  return {device, "The splat budget of " + number(budget) + " is more than this GPU can train: lowered to " +
                      number(device) + ", limited by " + limit + "."};
}

uint64_t mostPixels(const DeviceLimits& limits) {
  return std::min(limits.maxAllocation, limits.maxStorageRange) / kSsimPlaneBytesPerPixel;
}

}  // namespace quor::gs
