// Opens the device that the user prefers, or another one when that is gone.
#pragma once

#include <memory>

#include "base/log/log_store.h"
#include "gpu/device/vulkan_context.h"

namespace quor::gs {

// A preferred card may have been taken out: with a warning in the log, the best of the others takes its place. The
// device is named in the log. A negative `preferred` means the best one. Throws what VulkanContext throws.
std::unique_ptr<VulkanContext> openPreferredDevice(ContextOptions options, int32_t preferred, LogStore& log);

// The same for a device that must be this one. Throws what VulkanContext throws.
std::unique_ptr<VulkanContext> openDevice(const ContextOptions& options, LogStore& log);

}  // namespace quor::gs
