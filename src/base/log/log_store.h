// The one place where every part of the program reports what it does. Entries are kept in memory (bounded), echoed to
// standard error for the command line and appended to a log file. Any thread may add; adding never throws.
#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "base/log/log_tail.h"

namespace quor {

enum class LogLevel : int32_t { Information = 0, Warning = 1, Error = 2 };

struct LogEntry {
  LogLevel level = LogLevel::Information;
  std::string text;
  double seconds = 0;     // since the LogStore was made, monotonic
  int64_t time = 0;       // wall clock, seconds since 1970
  uint64_t sequence = 0;  // 1 for the first entry ever added, never reused
  bool endsRun = false;   // the failure that ended a run; whoever started the run is told of it, too
};

class LogStore {
 public:
  explicit LogStore(size_t capacity);  // 0 is taken as 1
  LogStore(const LogStore&) = delete;
  LogStore& operator=(const LogStore&) = delete;

  static constexpr uint64_t kMaxFileBytes = uint64_t{8} << 20;

  // Opens `path` for appending and makes its folder. When that fails logging goes on in memory and on standard error. A
  // file that has reached `maxBytes` is moved to PATH.old, in place of the one there, and begun anew; several programs
  // may append to one file.
  bool openFile(const std::filesystem::path& path, uint64_t maxBytes = kMaxFileBytes) noexcept;
  // Echoes entries from `minimum` up to standard error.
  void setEcho(bool enabled, LogLevel minimum = LogLevel::Information);

  void add(LogLevel level, std::string_view text, bool endsRun = false) noexcept;
  void info(std::string_view text) noexcept { add(LogLevel::Information, text); }
  void warning(std::string_view text) noexcept { add(LogLevel::Warning, text); }
  void error(std::string_view text) noexcept { add(LogLevel::Error, text); }
  void runFailure(std::string_view text) noexcept { add(LogLevel::Error, text, true); }

  // Puts the entries kept and all that come into `tail`, which must live as long as the store. One tail may serve
  // several stores.
  void mirrorTo(LogTail& tail) noexcept;

  // Copies of the entries still kept whose sequence number is above the given one, oldest first.
  std::vector<LogEntry> entriesAfter(uint64_t sequence) const;
  uint64_t lastSequence() const;

 private:
  double append(LogLevel level, const std::string& text, bool endsRun);  // returns the seconds since creation
  void writeToFile(const std::string& line);
  void reopenFile();

  mutable std::mutex mutex_;
  std::deque<LogEntry> entries_;
  size_t capacity_;
  uint64_t lastSequence_ = 0;
  bool echo_ = false;
  LogLevel echoMinimum_ = LogLevel::Information;
  std::ofstream file_;
  std::filesystem::path filePath_;
  uint64_t maxFileBytes_ = kMaxFileBytes;
  LogTail* tail_ = nullptr;
  const std::chrono::steady_clock::time_point created_;
};

// "warning: ", "error: " or nothing.
const char* levelPrefix(LogLevel level);

}  // namespace quor
