// An instant, in seconds since 1970, taken apart.
#pragma once

#include <cstdint>
#include <ctime>

namespace quor {

std::tm localTimeParts(int64_t seconds);
std::tm utcTimeParts(int64_t seconds);

}  // namespace quor
