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
  const auto time = static_cast<std::time_t>(seconds);
  std::tm parts{};
  localtime_r(&time, &parts);
  return format(parts, pattern);
}

std::string formatUtcTime(int64_t seconds, const char* pattern) {
  const auto time = static_cast<std::time_t>(seconds);
  std::tm parts{};
  gmtime_r(&time, &parts);
  return format(parts, pattern);
}

}  // namespace quor
