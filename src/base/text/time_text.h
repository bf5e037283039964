// Wall-clock instants as text; `format` is strftime's.
#pragma once

#include <cstdint>
#include <string>

namespace quor {

int64_t wallClockSeconds();  // since 1970
std::string formatLocalTime(int64_t seconds, const char* format);
std::string formatUtcTime(int64_t seconds, const char* format);

}  // namespace quor
