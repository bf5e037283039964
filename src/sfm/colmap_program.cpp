#include "sfm/colmap_program.h"

#include <algorithm>
#include <stdexcept>

#include "base/failures.h"
#include "base/files/paths.h"
#include "base/process/child_process.h"
#include "base/process/tool_places.h"

namespace quor {
namespace {

namespace fs = std::filesystem;

bool isNameCharacter(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' || c == '.';
}

// Whether `text` holds `word` with nothing on either side that could belong to it.
bool holdsWord(std::string_view text, std::string_view word) {
  for (size_t at = text.find(word); at != std::string_view::npos; at = text.find(word, at + 1)) {
    const size_t end = at + word.size();
    if ((at == 0 || !isNameCharacter(text[at - 1])) && (end == text.size() || !isNameCharacter(text[end]))) return true;
  }
  return false;
}

// The folder that COLMAP was unpacked into: that of the executable, or the one above when that is bin/.
fs::path installFolder(const fs::path& executable) {
  const fs::path folder = executable.parent_path();
  return folder.filename() == "bin" ? folder.parent_path() : folder;
}

// What COLMAP needs to find its own parts, and to do without a screen.
std::vector<std::pair<std::string, std::string>> environmentFor(const fs::path& executable) {
  const fs::path folder = installFolder(executable);
  fs::path plugins = folder / "plugins";
  std::error_code ignored;
  for (const fs::path& older : {folder / "lib" / "plugins", folder / "lib"}) {
    if (!fs::exists(plugins, ignored) && fs::exists(older / "platforms", ignored)) plugins = older;
  }
  auto environment = startEnvironment(folder);
  environment.emplace_back("QT_PLUGIN_PATH", toUtf8(plugins));
  environment.emplace_back("QT_QPA_PLATFORM", "offscreen");
  return environment;
}

std::string commandLine(const ColmapStep& step) {
  std::string line = "$ colmap " + step.command;
  for (const std::string& argument : step.arguments) {
    const bool plain = !argument.empty() && argument.find_first_of(" \"'") == std::string::npos;
    line += plain ? " " + argument : " \"" + argument + "\"";
  }
  return line;
}

// The step on the CPU, when it asks for the GPU.
std::optional<ColmapStep> withoutGpu(ColmapStep step) {
  const auto option = std::ranges::find(step.arguments, step.gpuOption);
  if (option == step.arguments.end() || option + 1 == step.arguments.end() || option[1] != "1") return std::nullopt;
  option[1] = "0";
  return step;
}

}  // namespace

ColmapProgram::ColmapProgram(fs::path executable, LogStore& log, std::function<bool()> cancelled)
    : executable_(std::move(executable)), log_(log), cancelled_(std::move(cancelled)) {}

int ColmapProgram::run(const std::vector<std::string>& arguments, const std::function<void(std::string_view)>& onLine) {
  ChildCommand command;
  command.program = executable_;
  command.arguments = arguments;
  command.environment = environmentFor(executable_);
  ChildResult result;
  try {
    const auto mustEnd = [&] { return cancelled_() || (deadline_ && std::chrono::steady_clock::now() > *deadline_); };
    result = runChildProcess(command, onLine, mustEnd);
  } catch (const ChildStartError& e) {
    throw std::runtime_error(std::string("Could not run COLMAP (") + e.what() + ")");
  }
  if (result.cancelled && !cancelled_()) throw TimeOver();
  if (result.cancelled) throw Cancelled();
  return result.exitCode;
}

void ColmapProgram::identify() {
  std::string text;
  run({"help"}, [&](std::string_view line) { text.append(line) += '\n'; });
  std::string version = text.substr(0, text.find('\n'));
  if (version == version_ && !help_.empty()) return;
  version_ = std::move(version);
  help_.clear();
  help_[""] = std::move(text);
}

const std::string& ColmapProgram::help(const std::string& command) {
  const auto known = help_.find(command);
  if (known != help_.end()) return known->second;
  std::string text;
  run({command, "-h"}, [&](std::string_view line) { text.append(line) += '\n'; });
  return help_[command] = std::move(text);
}

bool ColmapProgram::hasCommand(const std::string& command) {
  if (help_.empty()) identify();
  return holdsWord(help_[""], command);
}

std::optional<std::string> ColmapProgram::option(const std::string& command,
                                                 const std::vector<std::string>& candidates) {
  if (help(command).find("--") == std::string::npos) return "--" + candidates.back();
  for (const std::string& candidate : candidates) {
    if (accepts(command, candidate)) return "--" + candidate;
  }
  return std::nullopt;
}

bool ColmapProgram::accepts(const std::string& command, const std::string& option) {
  return holdsWord(help(command), "--" + option);
}

int ColmapProgram::tryStep(const ColmapStep& step, ColmapOutput& output, const LineParser& parse,
                           const StepProgress& progress) {
  output.beginStep(commandLine(step));
  std::vector<std::string> arguments = {step.command};
  arguments.insert(arguments.end(), step.arguments.begin(), step.arguments.end());
  const int exitCode = run(arguments, [&](std::string_view line) {
    output.take(line);
    if (const std::optional<float> fraction = parse(line)) progress(*fraction);
  });
  const std::optional<ColmapStep> onCpu = withoutGpu(step);
  if (exitCode == 0 || !output.gpuFailed() || !onCpu) return exitCode;
  log_.warning("COLMAP could not use the GPU for " + step.command + " — running it on the CPU instead.");
  return tryStep(*onCpu, output, parse, progress);
}

void ColmapProgram::fail(const ColmapStep& step, ColmapOutput& output, int exitCode) {
  output.explainFailure(exitCode);
  throw std::runtime_error(step.command + " failed (COLMAP exit code " + std::to_string(exitCode) + ")");
}

void ColmapProgram::step(const ColmapStep& step, ColmapOutput& output, const LineParser& parse,
                         const StepProgress& progress) {
  const int exitCode = tryStep(step, output, parse, progress);
  if (exitCode != 0) fail(step, output, exitCode);
}

}  // namespace quor
