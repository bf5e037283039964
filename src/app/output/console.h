// Everything that a command prints on standard error while it works. There is one writer, so that log entries, messages
// and the live line of a terminal never run into one another; log entries are printed from here instead of by the
// store's own echo.
#pragma once

#include <cstdint>
#include <string>

#include "base/log/log_store.h"

namespace quor {

class Console {
 public:
  // Prints what is logged from now on.
  Console(const LogStore& log, bool quiet);
  ~Console();
  Console(const Console&) = delete;
  Console& operator=(const Console&) = delete;

  bool isTerminal() const { return terminal_; }

  // A line of its own. Left out under --quiet.
  void message(const std::string& text);
  // Progress: on a terminal it replaces the last live text; call it only there.
  void live(const std::string& text);

  // Prints what was logged since the last call (under --quiet without information), but not the failure that ended a
  // run: whoever started the run prints that as its result.
  void printLog();

  // "error: TEXT".
  void error(const std::string& text);
  // A line of its own, under --quiet too.
  void notice(const std::string& text) { print(text); }

 private:
  void print(const std::string& line);
  void printEntry(const LogEntry& entry);

  const LogStore& log_;
  const bool quiet_;
  const bool terminal_;
  bool liveShown_ = false;
  uint64_t lastSequence_;
};

// All of it, at once. False when that fails.
bool writeStandardOutput(const std::string& text);

}  // namespace quor
