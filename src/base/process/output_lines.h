// Cuts the output of a child process into lines as it arrives. Lines end with "\n", "\r" or both; empty ones are
// skipped.
#pragma once

#include <functional>
#include <string>
#include <string_view>

namespace quor {

class OutputLines {
 public:
  static constexpr size_t kLongestLine =
      16 * 1024;  // bytes as printed; longer lines come in pieces that split no character

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

// Each longest piece that begins no character becomes U+FFFD.
std::string repairUtf8(std::string_view text);

}  // namespace quor
