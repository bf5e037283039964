#include "app/command_line.h"

#include <cstdio>
#include <filesystem>
#include <fstream>

#include "app/batch_command.h"
#include "app/build_info.h"
#include "app/commands.h"
#include "app/mcp_command.h"
#include "app/output/console.h"
#include "app/run_project.h"
#include "base/crash/crash_handler.h"
#include "base/failures.h"
#include "base/files/atomic_file.h"
#include "base/files/paths.h"
#include "base/log/log_store.h"
#include "base/process/terminal.h"
#include "base/text/text.h"
#include "gpu/device/vulkan_context.h"
#include "pipeline/guidance.h"
#include "pipeline/media.h"

namespace quor {

namespace {

constexpr size_t kStartEntries = 100;

int fail(const std::string& message) {
  std::fprintf(stderr, "error: %s\n", withoutControls(message).c_str());
  return kExitFailure;
}

int failUsage(const std::string& message, FrontEnd frontEnd) {
  std::fprintf(stderr, "error: %s\n\n%s", withoutControls(message).c_str(), usageText(frontEnd).c_str());
  return kExitUsage;
}

int printOut(const std::string& text) {
  if (writeStandardOutput(text)) return kExitSuccess;
  return fail("could not write to standard output");
}

int devicesCommand(const Options&) {
  std::string lines;
  try {
    const std::vector<gs::DeviceInfo> devices = gs::listDevices();
    for (size_t i = 0; i < devices.size(); ++i) lines += formatText("[%zu] %s\n", i, devices[i].name.c_str());
    if (devices.empty()) throw std::runtime_error("No Vulkan GPU found. Update the graphics driver.");
  } catch (const std::exception& error) {
    return fail(std::string("Could not list Vulkan devices: ") + error.what());
  }
  return printOut(lines);
}

// A device or a pipe is written as it is; a file is replaced only by one that is whole.
bool writeText(const std::filesystem::path& path, const std::string& text) {
  std::error_code ignored;
  if (std::filesystem::exists(path, ignored) && !std::filesystem::is_regular_file(path, ignored)) {
    std::ofstream device(path, std::ios::binary);
    device << text;
    device.close();
    return device.good();
  }
  try {
    AtomicFile file(std::filesystem::weakly_canonical(path));  // a link stays one
    file.stream() << text;
    file.commit();
    return true;
  } catch (const std::exception&) {
    return false;
  }
}

int instructionsCommand(const Options& options) {
  if (options.paths.empty()) return printOut(guidanceText());
  const std::string& path = options.paths[0];
  return writeText(fromUtf8(path), guidanceText()) ? kExitSuccess : fail("could not write " + path);
}

struct Command {
  const char* name;
  Places places;
  size_t leastPaths;
  size_t mostPaths;
  int (*run)(const Options&);
  const char* settings = "";  // where it has its settings from, if not from options
};

constexpr size_t kAny = SIZE_MAX;
constexpr Command kCommands[] = {
    {"run", kOnRun, 1, kAny, runMediaCommand},
    {"train", kOnTrain, 1, 1, trainCommand},
    {"import", kOnImport, 1, 1, importCommand},
    {"batch", kOnBatch, 1, 1, batchCommand, ": it takes every item's settings and folder from the batch file"},
    {"devices", kOnDevices, 0, 0, devicesCommand},
    {"mcp", kOnMcp, 0, 0, mcpCommand, ": its client sends settings with each call"},
    {"instructions", kOnInstructions, 0, 1, instructionsCommand},
};

int runCommand(const Command& command, std::span<const std::string> arguments) {
  const Options options = parseOptions(arguments);
  const std::string name = command.name;
  if (options.paths.size() < command.leastPaths) throw UsageError(name + " needs a path");
  if (options.paths.size() > command.mostPaths) {
    const std::string takes =
        command.mostPaths == 0 ? " takes no path, but was given '" : " takes one path, but was also given '";
    throw UsageError(name + takes + options.paths[command.mostPaths] + "'");
  }
  refuseMisplaced(options, command.places, command.settings);
  return command.run(options);
}

// A mistyped command is not a path: those exist, or at least look like one.
bool looksLikePath(const std::string& text) {
  std::error_code ignored;
  return std::filesystem::exists(fromUtf8(text), ignored) || text.find_first_of("/\\.") != std::string::npos;
}

// Neither a command nor anything that could be meant for the window ends in the usage text.
int runUnknown(const std::vector<std::string>& arguments, FrontEnd frontEnd, const OpenWindow& openWindow) {
  if (arguments.empty() && frontEnd == FrontEnd::CommandLineOnly) {
    std::fputs(usageText(frontEnd).c_str(), stderr);
    return kExitUsage;
  }
  if (!arguments.empty() && arguments[0].starts_with("-")) throw UsageError("unknown option " + arguments[0]);
  if (frontEnd == FrontEnd::Desktop && (arguments.empty() || (arguments.size() == 1 && looksLikePath(arguments[0])))) {
    if (openWindow) return openWindow(arguments);
    return fail("This program was built without its window; everything can be done by commands (see `Ombrelux help`).");
  }
  throw UsageError("unknown command '" + arguments[0] + "'");
}

int dispatch(const std::vector<std::string>& arguments, FrontEnd frontEnd, const OpenWindow& openWindow) {
  const std::string name = arguments.empty() ? "" : arguments[0];
  if (name == "help" || name == "--help" || name == "-h") return printOut(usageText(frontEnd));
  if (name == "version" || name == "--version") {
    const bool verbose = arguments.size() > 1 && arguments[1] == "--verbose";
    return printOut(std::string("Ombrelux ") + kVersion + " (Vulkan)\n" + (verbose ? buildInfoText() : ""));
  }
  for (const Command& command : kCommands) {
    if (name == command.name) return runCommand(command, std::span(arguments).subspan(1));
  }
  return runUnknown(arguments, frontEnd, openWindow);
}

}  // namespace

int runCommandLine(const std::vector<std::string>& arguments, FrontEnd frontEnd, const OpenWindow& openWindow) {
  try {
    occupyClosedStreams();
    useUtf8Streams();
    countInterrupts();
    LogStore log(kStartEntries);  // until a command has one of its own
    log.setEcho(true);
    installCrashHandler(frontEnd == FrontEnd::Desktop ? "Ombrelux" : "OmbreluxCLI", log);
    crashIfAsked(log);
    prepareMedia();
    return dispatch(arguments, frontEnd, openWindow);
  } catch (const UsageError& error) {
    return failUsage(error.what(), frontEnd);
  } catch (const std::exception& error) {
    return fail(failureText(error));
  }
}

}  // namespace quor
