#include "app/console.h"

#include <algorithm>
#include <cstdio>

#include "base/process/terminal.h"
#include "base/text/text.h"

namespace quor {

namespace {

constexpr size_t kRecentEntries = 16;
constexpr const char* kClearLine = "\r\x1b[2K";

bool contains(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

}  // namespace

Console::Console(const LogStore& log, bool quiet)
    : log_(log), quiet_(quiet), terminal_(standardErrorIsTerminal()), lastSequence_(log.lastSequence()) {}

Console::~Console() {
  if (liveShown_) std::fputs(kClearLine, stderr);
}

void Console::print(const std::string& line) {
  const std::string text = (liveShown_ ? kClearLine : "") + withoutControls(line) + "\n";
  liveShown_ = false;
  std::fwrite(text.data(), 1, text.size(), stderr);
}

void Console::message(const std::string& text, const std::string& inLog) {
  if (quiet_) return;
  const auto says = [&](const std::string& entry) { return entry.ends_with(inLog); };
  if (!inLog.empty() && std::any_of(recent_.begin(), recent_.end(), says)) return;
  print(text);
}

void Console::live(const std::string& text) {
  if (quiet_) return;
  // A line that wraps cannot be cleared.
  const std::string line = kClearLine + text.substr(0, terminalWidth() - 1);
  std::fwrite(line.data(), 1, line.size(), stderr);
  liveShown_ = true;
}

void Console::printEntry(const LogEntry& entry) {
  print(formatText("[%7.2fs] %s", entry.seconds, levelPrefix(entry.level)) + entry.text);
  recent_.push_back(entry.text);
  if (recent_.size() > kRecentEntries) recent_.pop_front();
}

void Console::printLog() {
  for (LogEntry& entry : log_.entriesAfter(lastSequence_)) {
    lastSequence_ = entry.sequence;
    if (entry.level == LogLevel::Error) {
      held_.push_back(std::move(entry));
    } else if (!quiet_ || entry.level != LogLevel::Information) {
      printEntry(entry);
    }
  }
}

void Console::finishLog(const std::string& failure) {
  printLog();
  for (const LogEntry& entry : held_) {
    const bool same = !failure.empty() && (contains(entry.text, failure) || contains(failure, entry.text));
    if (!same) printEntry(entry);
  }
  held_.clear();
}

void Console::error(const std::string& text) {
  print("error: " + text);
}

bool writeStandardOutput(const std::string& text) {
  return std::fwrite(text.data(), 1, text.size(), stdout) == text.size() && std::fflush(stdout) == 0;
}

}  // namespace quor
