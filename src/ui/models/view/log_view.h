// The filtered log: entries of the chosen levels that contain the text searched for. Only what is new
// is fetched from the store, and no more is kept than the store keeps. The interface's thread only.
#pragma once

#include <array>
#include <cstdint>
#include <deque>
#include <string>

#include "base/log/log_store.h"

namespace quor::ui {

class LogView {
 public:
  struct Line {
    LogLevel level = LogLevel::Information;
    std::string text;  // "14:05:09 warning: ..."
    uint64_t sequence = 0;
  };

  LogView(const LogStore& log, size_t capacity) : log_(log), capacity_(capacity) {}

  // Once a frame. Whether there are new lines to be seen, which a view that follows the end scrolls to.
  bool update();

  const std::deque<Line>& lines() const { return shown_; }
  std::string emptyText() const;  // said where no line is

  bool shows(LogLevel level) const { return levels_[static_cast<size_t>(level)]; }
  void show(LogLevel level, bool shown);
  // Of those kept, whether they are shown or not.
  size_t count(LogLevel level) const { return counts_[static_cast<size_t>(level)]; }
  const std::string& search() const { return search_; }
  void setSearch(const std::string& text);  // anywhere in a line, in whatever case

  // The lines shown, for the clipboard.
  std::string copyText() const;
  // Hides the entries so far; they stay in the store and in the file.
  void clear();

 private:
  bool lets(const Line& line) const;
  void filter();

  const LogStore& log_;
  const size_t capacity_;
  uint64_t seen_ = 0;
  std::deque<Line> all_;
  std::deque<Line> shown_;
  std::array<size_t, 3> counts_ = {};
  std::array<bool, 3> levels_ = {true, true, true};
  std::string search_;
  std::string lowered_;
};

}  // namespace quor::ui
