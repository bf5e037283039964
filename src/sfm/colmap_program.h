// One installed COLMAP: runs its commands, and knows what this version calls its commands and options.
#pragma once

#include <chrono>
#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "sfm/colmap_output.h"

namespace quor {

struct ColmapStep {
  std::string command;
  std::vector<std::string> arguments;  // UTF-8
  std::string gpuOption;               // with its dashes, when `arguments` holds one that asks for the GPU
};

// A command was ended because its time was over.
struct TimeOver : std::runtime_error {
  TimeOver() : std::runtime_error("ended, since further attempts have taken their time") {}
};

class ColmapProgram {
 public:
  // The step's fraction, 0..1, from one line of its output.
  using LineParser = std::function<std::optional<float>(std::string_view line)>;
  using StepProgress = std::function<void(float fraction)>;

  // `cancelled` is asked on the thread that runs a command.
  ColmapProgram(std::filesystem::path executable, LogStore& log, std::function<bool()> cancelled);

  // From then on, commands are ended and throw TimeOver; nothing: they take as long as they need.
  void endBy(std::optional<std::chrono::steady_clock::time_point> deadline) { deadline_ = deadline; }

  // Reads the version. Forgets everything learnt from another version. Throws "Could not run COLMAP (reason)".
  void identify();
  const std::string& version() const { return version_; }  // the first line of its help

  bool hasCommand(const std::string& command);
  // Which of an option's spellings `command` accepts, with its dashes; they are given newest first. Nothing when it
  // accepts none. A COLMAP without help texts (it may be wrapped in a script) is taken for version 3, whose
  // spelling is the last.
  std::optional<std::string> option(const std::string& command, const std::vector<std::string>& candidates);

  // Whether the help of `command` lists an option, given without its dashes. For options that are merely useful.
  bool accepts(const std::string& command, const std::string& option);

  // Runs one command to its end. A GPU step that COLMAP cannot run on the GPU is run again on the CPU. Throws
  // std::runtime_error: Cancelled, "Could not run COLMAP (reason)" or "COMMAND failed (COLMAP exit code N)".
  void step(const ColmapStep& step, ColmapOutput& output, const LineParser& parse, const StepProgress& progress);
  // The same, but returns the exit code instead of throwing for it.
  int tryStep(const ColmapStep& step, ColmapOutput& output, const LineParser& parse, const StepProgress& progress);
  // Says in the log why a step failed and throws for it.
  [[noreturn]] static void fail(const ColmapStep& step, ColmapOutput& output, int exitCode);

 private:
  int run(const std::vector<std::string>& arguments, const std::function<void(std::string_view)>& onLine);
  const std::string& help(const std::string& command);  // "" for the list of commands

  const std::filesystem::path executable_;
  LogStore& log_;
  const std::function<bool()> cancelled_;
  std::optional<std::chrono::steady_clock::time_point> deadline_;
  std::string version_;
  std::map<std::string, std::string> help_;  // by command, of the version above
};

}  // namespace quor
