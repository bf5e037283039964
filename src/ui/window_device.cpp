#include "ui/window_device.h"

#include "base/files/paths.h"
#include "gpu/device/preferred_device.h"

namespace quor::ui {

std::unique_ptr<gs::VulkanContext> openContext(const Preferences& preferences, LogStore& log) {
  gs::ContextOptions options;
  options.presentation = true;
  for (const std::string& layer : gs::listImplicitLayers()) {
    const bool allowed = environmentVariable("QUOR_ALLOW_VULKAN_LAYERS").has_value();
    log.info((allowed ? "Vulkan layer allowed: " : "Vulkan layer kept out: ") + layer);
  }
  return gs::openPreferredDevice(options, preferences.deviceIndex, log);
}

std::vector<std::string> deviceLines() {
  std::vector<std::string> lines;
  for (const gs::DeviceInfo& info : gs::listDevices()) lines.push_back(gs::describe(info));
  return lines;
}

}  // namespace quor::ui
