#include "base/files/paths.h"

#include <system_error>

namespace quor {

std::string toUtf8(const std::filesystem::path& path) {
  const std::u8string text = path.u8string();
  return {text.begin(), text.end()};
}

std::filesystem::path fromUtf8(std::string_view text) {
  return std::u8string(text.begin(), text.end());
}

bool isSamePlace(const std::filesystem::path& a, const std::filesystem::path& b) {
  std::error_code error;
  if (std::filesystem::equivalent(a, b, error)) return true;
  // Some libraries cannot compare folders on Windows.
  const std::filesystem::path whole = std::filesystem::weakly_canonical(a, error);
  return !error && whole == std::filesystem::weakly_canonical(b, error) && !error;
}

std::filesystem::path applicationLogFile() {
  return userDataFolder() / "logs" / "Ombrelux.log";
}

}  // namespace quor
