#include "base/text/time_parts.h"

namespace quor {

std::tm localTimeParts(int64_t seconds) {
  const __time64_t time = seconds;
  std::tm parts{};
  _localtime64_s(&parts, &time);
  return parts;
}

std::tm utcTimeParts(int64_t seconds) {
  const __time64_t time = seconds;
  std::tm parts{};
  _gmtime64_s(&parts, &time);
  return parts;
}

}  // namespace quor
