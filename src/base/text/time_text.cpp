#include "base/text/time_text.h"

#include <chrono>

#include "base/text/time_parts.h"

namespace quor {
namespace {

std::string formatParts(const std::tm& parts, const char* format) {
  char text[128];
  return {text, std::strftime(text, sizeof text, format, &parts)};
}

}  // namespace

int64_t wallClockSeconds() {
  return std::chrono::duration_cast<std::chrono::seconds>(std::chrono::system_clock::now().time_since_epoch()).count();
}

std::string formatLocalTime(int64_t seconds, const char* format) {
  return formatParts(localTimeParts(seconds), format);
}

std::string formatUtcTime(int64_t seconds, const char* format) {
  return formatParts(utcTimeParts(seconds), format);
}

}  // namespace quor
