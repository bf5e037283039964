#include "gpu/device/preferred_device.h"

namespace quor::gs {

std::unique_ptr<VulkanContext> openDevice(const ContextOptions& options, LogStore& log) {
  auto context = std::make_unique<VulkanContext>(options);
  const DeviceInfo& info = context->info();
  log.info(describe(info) + (info.driver.empty() ? "" : " · driver " + info.driver));
  return context;
}

std::unique_ptr<VulkanContext> openPreferredDevice(ContextOptions options, int32_t preferred, LogStore& log) {
  options.deviceIndex = preferred;
  if (preferred < 0) return openDevice(options, log);
  try {
    return openDevice(options, log);
  } catch (const std::exception& error) {
    log.warning(std::string("The graphics device that was chosen cannot be used (") + error.what() +
                "): another one is taken.");
  }
  options.deviceIndex = -1;
  return openDevice(options, log);
}

}  // namespace quor::gs
