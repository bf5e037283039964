// The run of a command: its log, its voice, its tools, and the device once it is needed.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "app/application_log.h"
#include "app/options/options.h"
#include "app/output/console.h"
#include "base/process/tool_finder.h"
#include "gpu/device/vulkan_context.h"
#include "project/preferences.h"

namespace quor {

// The preferences' tools, but for those that an option names; one that leads to no program is warned of in the log.
Tools findTools(const Options& options, const Preferences& preferences, LogStore& log);

// The device that the options name, which must be there; else the preferred one or, when that is gone, the best one.
// Throws what VulkanContext throws.
std::unique_ptr<gs::VulkanContext> openContext(const Options& options, const Preferences& preferences, LogStore& log);

class Session {
 public:
  explicit Session(const Options& options);

  LogStore& log() { return log_; }
  Console& console() { return console_; }
  const Tools& tools() const { return tools_; }

  void say(const std::string& text) { console_.message(text); }
  void announce(const Project& project);
  void warn(const std::string& text);

  // Throws what VulkanContext throws. To be called before device() and drive(). A device that was opened before is
  // given up first: nothing may use it any more.
  void openDevice();
  gs::VulkanContext& device() { return *context_; }

  // Frames are worth having without it, so it stops the run only where it is needed.
  void warnOfMissingColmap();

  int drive(const Project& project, Stage from);

 private:
  const Options& options_;
  ApplicationLog log_;
  Console console_;
  const Preferences preferences_;
  const Tools tools_;
  std::unique_ptr<gs::VulkanContext> context_;
};

}  // namespace quor
