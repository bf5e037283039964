#pragma once

#include <memory>
#include <string>
#include <vector>

#include "base/log/log_store.h"
#include "gpu/device/vulkan_context.h"
#include "project/preferences.h"

namespace quor::ui {

// Opens the device that the preferences name, for training and for the window. Takes the best one where the named one
// cannot be used: a card that was taken out must not keep the window, and with it the preferences, from opening.
std::unique_ptr<gs::VulkanContext> openContext(const Preferences& preferences, LogStore& log);

// A line for each device, for the preferences.
std::vector<std::string> deviceLines();

}  // namespace quor::ui
