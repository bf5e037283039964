// How many splats a run may have: as many as the user asked for, within the limits of the device.
#pragma once

#include <cstdint>
#include <string>

#include "gpu/device/vulkan_context.h"

namespace quor::gs {

// The limits that the rule depends on, so that it can be tested without a device.
struct DeviceLimits {
  uint64_t freeMemory = 0;       // bytes
  uint64_t maxAllocation = 0;    // bytes of one buffer
  uint64_t maxStorageRange = 0;  // bytes of one binding
};
DeviceLimits deviceLimits(const VulkanContext& context);

struct SplatCap {
  uint64_t splats = 0;
  std::string reason;  // for the log, a whole sentence
};

// `budget` 0 = as many as fit. `reserved` bytes are taken by images and photographs, `viewerBytes` bytes a splat by a
// live view. Throws std::runtime_error when not even a small scene fits.
SplatCap splatCap(const DeviceLimits& limits, uint64_t budget, uint64_t reserved, uint64_t viewerBytes = 0);

// The largest number of pixels an image may have to be trained on: the SSIM planes of one image are one binding.
uint64_t mostPixels(const DeviceLimits& limits);

}  // namespace quor::gs
