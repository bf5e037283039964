// Splits input into lines, within a bound on memory.
#pragma once

#include <functional>
#include <span>
#include <string>
#include <vector>

namespace quor::mcp {

class LineReader {
 public:
  // Fills the buffer, partly or wholly, and returns how much; 0 at the end.
  using Source = std::function<size_t(std::span<char> buffer)>;
  enum class Got { Line, TooLong, End };

  // A line of more than `longest` bytes is discarded while it is read.
  LineReader(Source source, size_t longest) : source_(std::move(source)), longest_(longest), buffer_(65536) {}

  // `line` without its line feed. The last one may lack it.
  Got next(std::string& line);

 private:
  Source source_;
  size_t longest_;
  std::vector<char> buffer_;
  std::span<const char> rest_;  // of the buffer, not yet taken
};

}  // namespace quor::mcp
