#include "ui/models/number_text.h"

#include <cmath>

#include "base/text/text.h"

namespace quor::ui {

std::string withThousands(uint64_t number) {
  std::string text = std::to_string(number);
  for (size_t i = text.size(); i > 3; i -= 3) text.insert(i - 3, ",");
  return text;
}

std::string sizeText(uint64_t bytes) {
  const char* const units[] = {"kB", "MB", "GB", "TB"};
  if (bytes < 1000) return std::to_string(bytes) + " bytes";
  double size = static_cast<double>(bytes) / 1000;
  size_t unit = 0;
  while (size >= 999.5 && unit + 1 < std::size(units)) {
    size /= 1000;
    ++unit;
  }
  return formatText(size < 99.95 ? "%.1f %s" : "%.0f %s", size, units[unit]);
}

std::string timeLeftText(double seconds) {
  constexpr double kLongest = 100.0 * 3600;
  if (!(seconds >= 0 && seconds < kLongest)) return {};
  if (seconds < 60) return "less than a minute left";
  const long minutes = std::lround(seconds / 60);
  if (minutes < 60) return formatText("about %ld min left", minutes);
  // Nobody waits by the minute for hours.
  const long coarse = minutes < 180 ? (minutes + 2) / 5 * 5 : (minutes + 15) / 30 * 30;
  if (coarse % 60 == 0) return formatText("about %ld h left", coarse / 60);
  return formatText("about %ld h %ld min left", coarse / 60, coarse % 60);
}

}  // namespace quor::ui
