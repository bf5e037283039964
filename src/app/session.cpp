#include "app/session.h"

#include "app/drive.h"
#include "base/crash_handler.h"
#include "base/paths.h"
#include "gs/engine.h"
#include "pipeline/pipeline.h"

namespace quor {
namespace {

constexpr size_t kLogCapacity = 5000;

const std::string& chosen(const std::string& option, const std::string& preference) {
  return option.empty() ? preference : option;
}

}  // namespace

Session::Session(const Options& options)
    : options_(options),
      log_(kLogCapacity),
      console_(log_, options.quiet),
      preferences_(Preferences::load()),
      tools_{findColmap(chosen(options.colmap, preferences_.colmapPath)),
             findFfmpeg(chosen(options.ffmpeg, preferences_.ffmpegPath))} {
  log_.mirrorTo(crashLogTail());
  warnUnlessUsed("--colmap", options.colmap, tools_.colmap);
  warnUnlessUsed("--ffmpeg", options.ffmpeg, tools_.ffmpeg);
}

void Session::announce(const Project& project) {
  say("Project: " + toUtf8(project.root));
}

void Session::warn(const std::string& text) {
  log_.warning(text);
  console_.printLog();
}

void Session::openDevice() {
  gs::ContextOptions context;
  context.deviceIndex = options_.device >= 0 ? options_.device : preferences_.deviceIndex;
  context_ = std::make_unique<gs::VulkanContext>(context);
  const gs::DeviceInfo& info = context_->info();
  log_.info(gs::describe(info) + (info.driver.empty() ? "" : " · driver " + info.driver));
}

void Session::warnOfMissingColmap() {
  if (!tools_.colmap) warn("COLMAP was not found; cameras cannot be solved. Install it, or name it with --colmap.");
}

int Session::drive(const Project& project, Stage from) {
  gs::Engine engine(*context_, log_);
  Pipeline pipeline(engine, log_, tools_, context_.get());
  return quor::drive(pipeline, engine, console_, project, from, options_.json);
}

void Session::warnUnlessUsed(const char* option, const std::string& value, const std::optional<ToolLocation>& found) {
  if (value.empty() || (found && found->source == "settings")) return;
  const std::string instead = found ? "; using " + toUtf8(found->executable) : std::string();
  warn(std::string(option) + " " + value + " leads to no program" + instead + ".");
}

}  // namespace quor
