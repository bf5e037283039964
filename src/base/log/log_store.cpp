#include "base/log/log_store.h"

#include <algorithm>
#include <cstdio>
#include <system_error>

#include "base/text/time_text.h"

namespace quor {
namespace {

std::string fileLine(const LogEntry& entry) {
  return formatLocalTime(entry.time, "%H:%M:%S") + ' ' + levelPrefix(entry.level) + entry.text + '\n';
}

}  // namespace

LogStore::LogStore(size_t capacity)
    : capacity_(std::max<size_t>(capacity, 1)), created_(std::chrono::steady_clock::now()) {}

bool LogStore::openFile(const std::filesystem::path& path, uint64_t maxBytes) noexcept {
  try {
    const std::scoped_lock lock(mutex_);
    filePath_ = path;
    maxFileBytes_ = maxBytes;
    reopenFile();
    return file_.is_open();
  } catch (...) {
    return false;
  }
}

// Looks at the file at the path, not at the open one: another program may have moved that aside already.
void LogStore::reopenFile() {
  std::error_code ignored;  // a folder that cannot be made shows when the file is opened
  std::filesystem::create_directories(filePath_.parent_path(), ignored);
  file_.close();
  std::error_code error;
  const uint64_t size = std::filesystem::file_size(filePath_, error);
  if (!error && size >= maxFileBytes_) {
    std::filesystem::path old = filePath_;
    old += ".old";
    std::filesystem::rename(filePath_, old, error);
    if (error) std::filesystem::resize_file(filePath_, 0, ignored);  // held open by a program on Windows
  }
  file_.open(filePath_, std::ios::app | std::ios::binary);
}

void LogStore::setEcho(bool enabled, LogLevel minimum) {
  const std::scoped_lock lock(mutex_);
  echo_ = enabled;
  echoMinimum_ = minimum;
}

void LogStore::add(LogLevel level, std::string_view text, bool endsRun) noexcept {
  try {
    const std::string copy(text);
    double seconds = 0;
    bool echo = false;
    {
      const std::scoped_lock lock(mutex_);
      seconds = append(level, copy, endsRun);
      echo = echo_ && level >= echoMinimum_;
    }
    if (echo) std::fprintf(stderr, "[%7.2fs] %s%s\n", seconds, levelPrefix(level), copy.c_str());
  } catch (...) {  // out of memory: the program's work goes before its log
  }
}

double LogStore::append(LogLevel level, const std::string& text, bool endsRun) {
  // The clocks are read under the lock so that times never run against the sequence.
  const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - created_;
  const int64_t time = wallClockSeconds();
  entries_.push_back({level, text, elapsed.count(), time, ++lastSequence_, endsRun});
  while (entries_.size() > capacity_) entries_.pop_front();
  if (tail_ != nullptr) tail_->add(fileLine(entries_.back()));
  if (file_.is_open()) writeToFile(fileLine(entries_.back()));
  return elapsed.count();
}

void LogStore::writeToFile(const std::string& line) {
  file_.clear();  // a disk that was full for a while does not silence the rest
  file_ << line << std::flush;
  const std::streamoff written = file_.tellp();
  if (written >= 0 && static_cast<uint64_t>(written) >= maxFileBytes_) reopenFile();
}

void LogStore::mirrorTo(LogTail& tail) noexcept {
  try {
    const std::scoped_lock lock(mutex_);
    tail_ = &tail;
    for (const LogEntry& entry : entries_) tail.add(fileLine(entry));
  } catch (...) {
  }
}

std::vector<LogEntry> LogStore::entriesAfter(uint64_t sequence) const {
  const std::scoped_lock lock(mutex_);
  const auto first =
      std::partition_point(entries_.begin(), entries_.end(), [&](const LogEntry& e) { return e.sequence <= sequence; });
  return {first, entries_.end()};
}

uint64_t LogStore::lastSequence() const {
  const std::scoped_lock lock(mutex_);
  return lastSequence_;
}

const char* levelPrefix(LogLevel level) {
  switch (level) {
    case LogLevel::Warning:
      return "warning: ";
    case LogLevel::Error:
      return "error: ";
    default:
      return "";
  }
}

}  // namespace quor
