#include "sfm/colmap_output.h"

#include <array>
#include <charconv>

#include "base/files/paths.h"
#include "base/text/text.h"

namespace quor {
namespace {

constexpr size_t kMaxProblems = 10;   // of one step in the program's log; a damaged folder can bring thousands
constexpr size_t kMaxLastLines = 20;  // that explain a failure

bool isDigit(char c) {
  return c >= '0' && c <= '9';
}

template <size_t N>
bool containsAny(std::string_view text, const std::array<std::string_view, N>& words) {
  for (const std::string_view word : words) {
    if (text.find(word) != std::string_view::npos) return true;
  }
  return false;
}

// The last is how COLMAP 3 aborts without an OpenGL context.
bool saysGpuFailed(std::string_view line) {
  return containsAny(line, std::array<std::string_view, 3>{"Failed to create feature", "Not enough GPU memory",
                                                           "Check failed: context_.create()"});
}

bool saysNoModel(std::string_view line) {
  return containsAny(line, std::array<std::string_view, 2>{"failed to create sparse model", "No images with matches"});
}

bool isProblem(std::string_view line, std::string_view message) {
  if (message.size() < line.size() && (line[0] == 'W' || line[0] == 'E' || line[0] == 'F')) return true;
  return containsAny(
      message, std::array<std::string_view, 9>{"WARNING", "ERROR", "Error:", "Failed to", "failed to", "Check failed",
                                               "terminate called", "what():", "*** Aborted"});
}

bool isWorthReading(std::string_view message) {
  return containsAny(message, std::array<std::string_view, 2>{"Elapsed time", "Relaxing the initialization"});
}

bool isStackTrace(std::string_view line) {
  return line.find("    @ ") != std::string_view::npos || line.starts_with("*** Check failure stack trace");
}

// A whole number at the front of `text`, which is then taken off.
bool takeNumber(std::string_view& text, unsigned& value) {
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc()) return false;
  text.remove_prefix(static_cast<size_t>(end - text.data()));
  return true;
}

bool takeCount(std::string_view& text, unsigned& at, unsigned& of) {
  if (!takeNumber(text, at) || !text.starts_with('/')) return false;
  text.remove_prefix(1);
  return takeNumber(text, of) && at >= 1 && at <= of;
}

}  // namespace

std::string_view colmapMessage(std::string_view line) {
  if (line.size() < 2 || std::string_view("IWEF").find(line[0]) == std::string_view::npos || !isDigit(line[1])) {
    return line;
  }
  const size_t end = line.find("] ");
  return end == std::string_view::npos ? line : line.substr(end + 2);
}

std::optional<float> countedFraction(std::string_view line) {
  line = colmapMessage(line);
  const size_t bracket = line.find('[');
  if (bracket == std::string_view::npos) return std::nullopt;
  line.remove_prefix(bracket + 1);
  unsigned row = 0, rows = 0;
  if (!takeCount(line, row, rows)) return std::nullopt;
  const auto whole = static_cast<float>(rows);
  if (line.starts_with(']')) return static_cast<float>(row) / whole;
  unsigned column = 0, columns = 0;
  if (!line.starts_with(", ")) return std::nullopt;
  line.remove_prefix(2);
  if (!takeCount(line, column, columns)) return std::nullopt;
  // Printed as the block begins.
  return (static_cast<float>(row - 1) + static_cast<float>(column - 1) / static_cast<float>(columns)) / whole;
}

ColmapOutput::ColmapOutput(LogStore& log, const std::filesystem::path& file)
    : log_(log), path_(file), file_(file, std::ios::binary | std::ios::app) {}

void ColmapOutput::beginStep(const std::string& heading) {
  log_.info(heading);
  file_ << heading << std::endl;
  lastLines_.clear();
  silent_ = true;
  problems_ = 0;
  gpuFailed_ = noModel_ = false;
}

void ColmapOutput::take(std::string_view line) {
  file_ << line << std::endl;  // flushed, so that the last lines of a killed solve can be read
  if (isStackTrace(line) || line.find_first_not_of(" =-") == std::string_view::npos) return;
  gpuFailed_ |= saysGpuFailed(line);
  noModel_ |= saysNoModel(line);

  std::string_view message = colmapMessage(line);
  message.remove_prefix(std::min(message.find_first_not_of(' '), message.size()));
  silent_ = false;
  if (isProblem(line, message) && ++problems_ <= kMaxProblems) {
    log_.warning("COLMAP: " + std::string(message));
    if (problems_ == kMaxProblems) log_.warning("COLMAP: further warnings of this step are in " + toUtf8(path_));
  } else if (isWorthReading(message)) {
    log_.info("COLMAP: " + std::string(message));
  } else {
    if (lastLines_.size() == kMaxLastLines) lastLines_.pop_front();
    lastLines_.emplace_back(message);
  }
}

void ColmapOutput::explainFailure(int exitCode) {
  for (const std::string& line : lastLines_) log_.warning("COLMAP: " + line);
  if (silent_) {
    log_.warning("COLMAP printed nothing before it ended. Does it run when it is started by hand?");
  } else {
    log_.warning("All that COLMAP printed is in " + toUtf8(path_));
  }
  constexpr int kKilled = 128 + 9;
  if (exitCode == kKilled) {
    log_.warning(
        "COLMAP was killed from outside, as systems do when memory runs out; fewer or smaller frames need less.");
  }
}

}  // namespace quor
