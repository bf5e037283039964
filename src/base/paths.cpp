#include "base/paths.h"

namespace quor {

std::string toUtf8(const std::filesystem::path& path) {
  const std::u8string text = path.u8string();
  return {text.begin(), text.end()};
}

std::filesystem::path fromUtf8(std::string_view text) {
  return std::u8string(text.begin(), text.end());
}

std::filesystem::path applicationLogFile() {
  return userDataFolder() / "logs" / "Ombrelux.log";
}

}  // namespace quor
