// Cuts the output of a child process into lines as it arrives. Lines end with "\n", "\r" or both; empty ones are left
// out.
#pragma once

#include <functional>
#include <string>
#include <string_view>

namespace quor {

class OutputLines {
 public:
  static constexpr size_t kLongestLine = 16 * 1024;  // bytes as printed; longer lines come in pieces, no character cut

  // `onLine` gets valid UTF-8 that lives as long as the call. It may throw.
  explicit OutputLines(const std::function<void(std::string_view)>& onLine) : onLine_(onLine) {}

  void add(std::string_view bytes);
  // The last line may have no end.
  void finish();

 private:
  void emit(std::string_view line);

  const std::function<void(std::string_view)>& onLine_;
  std::string pending_;
};

// Replaces each maximal invalid sequence by U+FFFD.
std::string repairUtf8(std::string_view text);

}  // namespace quor
