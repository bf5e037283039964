// Numbers as people read them.
#pragma once

#include <cstdint>
#include <string>

namespace quor::ui {

std::string withThousands(uint64_t number);  // 1,234,567
std::string sizeText(uint64_t bytes);        // "12.3 MB"
// "about 3 min left"; empty for NaN, negative times, and 100 hours or more.
std::string timeLeftText(double seconds);

}  // namespace quor::ui
