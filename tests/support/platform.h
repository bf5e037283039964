#pragma once

namespace quor::test {

#ifdef _WIN32
inline constexpr bool kWindows = true;
#else
inline constexpr bool kWindows = false;
#endif

}  // namespace quor::test
