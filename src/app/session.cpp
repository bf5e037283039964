#include "app/session.h"

#include "app/run_project.h"
#include "base/files/paths.h"
#include "base/process/tool_places.h"
#include "gpu/device/preferred_device.h"
#include "gs/train/engine.h"
#include "pipeline/pipeline.h"

namespace quor {
namespace {

const std::string& chosen(const std::string& option, const std::string& preference) {
  return option.empty() ? preference : option;
}

void warnUnlessUsed(const char* option, const std::string& value, const std::optional<ToolLocation>& found,
                    LogStore& log) {
  if (value.empty() || (found && found->source == "settings")) return;
  const std::string instead = found ? "; using " + toUtf8(found->executable) : std::string();
  log.warning(std::string(option) + " " + value + " leads to no program" + instead + ".");
}

}  // namespace

Tools findTools(const Options& options, const Preferences& preferences, LogStore& log) {
  Tools tools{findColmap(chosen(options.colmap, preferences.colmapPath)),
              findFfmpeg(chosen(options.ffmpeg, preferences.ffmpegPath))};
  warnUnlessUsed("--colmap", options.colmap, tools.colmap, log);
  warnUnlessUsed("--ffmpeg", options.ffmpeg, tools.ffmpeg, log);
  return tools;
}

std::unique_ptr<gs::VulkanContext> openContext(const Options& options, const Preferences& preferences, LogStore& log) {
  gs::ContextOptions context;
  if (!options.device) return gs::openPreferredDevice(context, preferences.deviceIndex, log);
  context.deviceIndex = *options.device;
  return gs::openDevice(context, log);
}

Session::Session(const Options& options)
    : options_(options),
      console_(log_, options.quiet),
      preferences_(Preferences::load()),
      tools_(findTools(options, preferences_, log_)) {
  console_.printLog();
}

void Session::announce(const Project& project) {
  say("Project: " + toUtf8(project.root));
}

void Session::warn(const std::string& text) {
  log_.warning(text);
  console_.printLog();
}

void Session::openDevice() {
  context_.reset();
  context_ = openContext(options_, preferences_, log_);
}

void Session::warnOfMissingColmap() {
  if (!tools_.colmap) {
    warn("COLMAP was not found; cameras cannot be solved. Install it, or name it with --colmap. " + colmapAdvice());
  }
}

int Session::drive(const Project& project, Stage from) {
  gs::Engine engine(*context_, log_);
  Pipeline pipeline(engine, log_, tools_, context_.get());
  return quor::drive(pipeline, engine, console_, project, from, options_.json);
}

}  // namespace quor
