// The last lines of the log in memory of their own, for whoever may neither wait for a lock nor allocate: the handler
// of a crash. A line that is being written while it is read may come out torn.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace quor {

class LogTail {
 public:
  static constexpr size_t kLines = 60;
  static constexpr size_t kLongestLine = 1024;  // bytes; longer lines are cut between characters

  // `line` ends in a line feed. From any thread.
  void add(std::string_view line) noexcept;

  // Adds the text of the escaped exception as a line, for a terminate handler. Does nothing without one.
  void addCurrentException() noexcept;

  // Lines added so far; the last kLines of them can be read.
  uint64_t count() const noexcept { return count_.load(std::memory_order_acquire); }
  // Line `number` of 0 .. count() - 1.
  std::string_view line(uint64_t number) const noexcept;

 private:
  struct Line {
    std::atomic<size_t> length = 0;
    char text[kLongestLine] = {};
  };
  std::array<Line, kLines> lines_;
  std::atomic<uint64_t> count_ = 0;
};

}  // namespace quor
