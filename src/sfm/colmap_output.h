// Sorts COLMAP's output, thousands of lines a solve: every line goes to the project's colmap.log, and those that help
// the user to the program's log with the prefix "COLMAP: ".
#pragma once

#include <deque>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>
#include <string_view>

#include "base/log/log_store.h"

namespace quor {

// The message of a line without the prefix that COLMAP's newer versions put before it ("I20240101 12:00:00.0 1 x.cc:2]
// ").
std::string_view colmapMessage(std::string_view line);

// The fraction done, from a line that counts: "Processed file [3/9]", "Matching block [1/2, 1/2]".
std::optional<float> countedFraction(std::string_view line);

class ColmapOutput {
 public:
  // Appends to `file`. If it cannot be opened, the program's log still gets its lines.
  ColmapOutput(LogStore& log, const std::filesystem::path& file);

  void beginStep(const std::string& heading);
  void take(std::string_view line);
  // For a step that failed: the last lines it printed go to the log, those left out so far, and the path of the file
  // that has all of them.
  void explainFailure(int exitCode);

  // Whether the step said, since it began, that it cannot use the GPU, or that no model came out.
  bool gpuFailed() const { return gpuFailed_; }
  bool noModel() const { return noModel_; }

 private:
  LogStore& log_;
  const std::filesystem::path path_;
  std::ofstream file_;
  std::deque<std::string> lastLines_;  // the last ones, without those that the log has
  bool silent_ = true;                 // the step has printed nothing yet
  size_t problems_ = 0;
  bool gpuFailed_ = false, noModel_ = false;
};

}  // namespace quor
