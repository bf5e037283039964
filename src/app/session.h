// The run of a command: its log, its voice, its tools, and the device once it is needed.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "app/console.h"
#include "app/options.h"
#include "app/preferences.h"
#include "base/log_store.h"
#include "base/tool_finder.h"
#include "gpu/vulkan_context.h"

namespace quor {

class Session {
 public:
  explicit Session(const Options& options);

  LogStore& log() { return log_; }
  Console& console() { return console_; }
  const Tools& tools() const { return tools_; }

  void say(const std::string& text) { console_.message(text); }
  void announce(const Project& project);
  void warn(const std::string& text);

  // Throws what VulkanContext throws. To be called before device() and drive().
  void openDevice();
  gs::VulkanContext& device() { return *context_; }

  // Frames are worth having without it, so it stops the run only where it is needed.
  void warnOfMissingColmap();

  int drive(const Project& project, Stage from);

 private:
  void warnUnlessUsed(const char* option, const std::string& value, const std::optional<ToolLocation>& found);

  const Options& options_;
  LogStore log_;
  Console console_;
  const Preferences preferences_;
  const Tools tools_;
  std::unique_ptr<gs::VulkanContext> context_;
};

}  // namespace quor
