#include "base/time_text.h"

#include <chrono>
#include <ctime>

namespace quor {
namespace {

std::string format(const std::tm& parts, const char* format) {
  char text[128];
  return {text, std::strftime(text, sizeof text, format, &parts)};
}

}  // namespace

int64_t wallClockSeconds() {
  return std::chrono::duration_cast<std::chrono::seconds>(std::chrono::system_clock::now().time_since_epoch()).count();
}

std::string formatLocalTime(int64_t seconds, const char* pattern) {
  const __time64_t time = seconds;
  std::tm parts{};
  _localtime64_s(&parts, &time);
  return format(parts, pattern);
}

std::string formatUtcTime(int64_t seconds, const char* pattern) {
  const __time64_t time = seconds;
  std::tm parts{};
  _gmtime64_s(&parts, &time);
  return format(parts, pattern);
}

}  // namespace quor
