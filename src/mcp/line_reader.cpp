#include "mcp/line_reader.h"

#include <algorithm>

namespace quor::mcp {

LineReader::Got LineReader::next(std::string& line) {
  std::string().swap(line);  // what a long line has taken is given back
  bool tooLong = false;
  for (bool any = false;; any = true) {
    if (rest_.empty()) {
      rest_ = std::span<const char>(buffer_).first(source_(buffer_));
      if (rest_.empty()) return tooLong ? Got::TooLong : any ? Got::Line : Got::End;
    }
    const auto end = std::ranges::find(rest_, '\n');
    const auto length = static_cast<size_t>(end - rest_.begin());
    tooLong = tooLong || line.size() + length > longest_;
    if (tooLong) {
      std::string().swap(line);
    } else {
      line.append(rest_.data(), length);
    }
    const bool whole = length < rest_.size();
    rest_ = rest_.subspan(whole ? length + 1 : length);
    if (whole) return tooLong ? Got::TooLong : Got::Line;
  }
}

}  // namespace quor::mcp
