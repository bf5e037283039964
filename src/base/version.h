#pragma once

namespace quor {

inline constexpr const char* kVersion = "1.1.3";

}  // namespace quor
