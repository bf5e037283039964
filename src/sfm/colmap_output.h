// What COLMAP prints, sorted: every line goes to the project's colmap.log, and those that say something to the user go
// to the program's log with the prefix "COLMAP: ". A solve prints thousands of lines.
#pragma once

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

// How far a step is by its line, when it counts: "Processed file [3/9]", "Matching block [1/2, 1/2]".
std::optional<float> countedFraction(std::string_view line);

class ColmapOutput {
 public:
  // Appends to `file`. Where that cannot be opened the lines are only sorted.
  ColmapOutput(LogStore& log, const std::filesystem::path& file);

  void beginStep(const std::string& heading);
  void take(std::string_view line);
  // The line that best says why the step failed goes to the log, with the place where all the others are.
  void explainFailure(int exitCode);

  // Whether the step said, since it began, that it cannot use the GPU, or that no model came out.
  bool gpuFailed() const { return gpuFailed_; }
  bool noModel() const { return noModel_; }

 private:
  LogStore& log_;
  const std::filesystem::path path_;
  std::ofstream file_;
  std::string lastLine_, lastProblem_;
  size_t problems_ = 0;
  bool gpuFailed_ = false, noModel_ = false;
};

}  // namespace quor
