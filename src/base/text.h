// printf-style text into a std::string, for the messages whose number formats are fixed.
#pragma once

#include <string>

namespace quor {

[[gnu::format(printf, 1, 2)]] std::string formatText(const char* format, ...);

std::string toLower(std::string text);  // ASCII only

}  // namespace quor
