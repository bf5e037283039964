#include "ui/window_device.h"

#include "base/failures.h"
#include "base/files/paths.h"

namespace quor::ui {

std::unique_ptr<gs::VulkanContext> openContext(const Preferences& preferences, LogStore& log) {
  gs::ContextOptions options;
  options.presentation = true;
  options.deviceIndex = preferences.deviceIndex;
  for (const std::string& layer : gs::listImplicitLayers()) {
    const bool allowed = environmentVariable("QUOR_ALLOW_VULKAN_LAYERS").has_value();
    log.info((allowed ? "Vulkan layer allowed: " : "Vulkan layer kept out: ") + layer);
  }
  std::unique_ptr<gs::VulkanContext> context;
  try {
    context = std::make_unique<gs::VulkanContext>(options);
  } catch (const std::exception& error) {
    if (options.deviceIndex < 0) throw;
    log.warning(std::string("The graphics device that was chosen cannot be used (") + failureText(error) +
                "): another one is taken.");
    options.deviceIndex = -1;
    context = std::make_unique<gs::VulkanContext>(options);
  }
  const gs::DeviceInfo& info = context->info();
  log.info(gs::describe(info) + (info.driver.empty() ? "" : " · driver " + info.driver));
  return context;
}

std::vector<std::string> deviceLines() {
  std::vector<std::string> lines;
  for (const gs::DeviceInfo& info : gs::listDevices()) lines.push_back(gs::describe(info));
  return lines;
}

}  // namespace quor::ui
