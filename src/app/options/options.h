// The arguments after a command: options in any order, everything else a path. Values are checked while they are
// parsed, so that a command line that makes no sense is refused before anything is read or written.
#pragma once

#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

#include "pipeline/pipeline.h"
#include "project/project.h"
#include "settings/settings_table.h"

namespace quor {

// The command line itself is wrong: the message is followed by the usage text, and the exit code is 2.
class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

struct GivenOption {
  std::string name;
  Places places = 0;                 // where it belongs
  const Setting* setting = nullptr;  // that it overwrites, if any
};

struct Options {
  std::vector<std::string> paths;  // UTF-8, in the order given
  std::string out;                 // empty: beside the first input
  std::optional<InputKind> kind;   // of every input; detected when absent
  std::optional<Stage> from;
  std::string colmap, ffmpeg;  // executable or folder, empty: searched for
  std::optional<int> device;   // negative: chosen automatically; absent: by the preferences
  bool json = false;
  bool quiet = false;
  std::vector<GivenOption> given;  // all of them
  Json settings = Json::object();  // those that overwrite a project's settings, as in its project.json

  // A setting whose option was not given keeps its value.
  void applyTo(Settings& target) const;
};

// Throws UsageError.
Options parseOptions(std::span<const std::string> arguments);

// Throws UsageError, which says where the option belongs, for the first one that cannot be used at any of these places.
// `advice` ends the sentence.
void refuseMisplaced(const Options& options, Places here, const char* advice = "");

// The options' part of the usage text, a line each (or more), in groups.
std::string optionsHelp();

}  // namespace quor
