#include "base/text/time_parts.h"

namespace quor {

std::tm localTimeParts(int64_t seconds) {
  const auto time = static_cast<std::time_t>(seconds);
  std::tm parts{};
  localtime_r(&time, &parts);
  return parts;
}

std::tm utcTimeParts(int64_t seconds) {
  const auto time = static_cast<std::time_t>(seconds);
  std::tm parts{};
  gmtime_r(&time, &parts);
  return parts;
}

}  // namespace quor
