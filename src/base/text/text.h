// printf-style text into a std::string, for the messages whose number formats are fixed.
#pragma once

#include <string>

namespace quor {

[[gnu::format(printf, 1, 2)]] std::string formatText(const char* format, ...);

std::string toLower(std::string text);  // ASCII only

// File names and damaged files may hold line feeds and terminal commands: each control character becomes "?".
std::string withoutControls(std::string text);

}  // namespace quor
