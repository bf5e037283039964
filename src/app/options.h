// The arguments after a command: options in any order, everything else a path. Values are checked while they are
// parsed, so that a command line that makes no sense is refused before anything is read or written.
#pragma once

#include <functional>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

#include "pipeline/pipeline.h"
#include "project/project.h"

namespace quor {

// The command line itself is wrong: the message is followed by the usage text, and the exit code is 2.
class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

struct Options {
  std::vector<std::string> paths;  // UTF-8, in the order given
  std::string out;                 // empty: beside the first input
  std::optional<InputKind> kind;   // of every input; detected when absent
  std::optional<Stage> from;
  std::string colmap, ffmpeg;  // executable or folder, empty: searched for
  int device = -1;             // negative: chosen automatically
  bool json = false;
  bool quiet = false;
  std::vector<std::function<void(Project&)>> settings;  // one for each option that overwrites a project's setting

  // A setting whose option was not given keeps the project's own value.
  void applyTo(Project& project) const;
};

// Throws UsageError.
Options parseOptions(std::span<const std::string> arguments);

// The options' part of the usage text, a line each (or more), in groups.
std::string optionsHelp();

}  // namespace quor
