#include "app/output/console.h"

#include <cstdio>

#include "base/process/terminal.h"
#include "base/text/text.h"

namespace quor {

namespace {

constexpr const char* kClearLine = "\r\x1b[2K";

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

void Console::message(const std::string& text) {
  if (!quiet_) print(text);
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
}

void Console::printLog() {
  for (const LogEntry& entry : log_.entriesAfter(lastSequence_)) {
    lastSequence_ = entry.sequence;
    const bool quiet = quiet_ && entry.level == LogLevel::Information;
    if (!quiet && !entry.endsRun) printEntry(entry);
  }
}

void Console::error(const std::string& text) {
  print("error: " + text);
}

bool writeStandardOutput(const std::string& text) {
  return std::fwrite(text.data(), 1, text.size(), stdout) == text.size() && std::fflush(stdout) == 0;
}

}  // namespace quor
