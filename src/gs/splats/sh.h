// The constants of the spherical harmonics that hold a splat's colour. The degree-0 term contributes
// 0.5 + kShC0 * shDc to a colour in 0..1.
#pragma once

#include <cstddef>

namespace quor::gs {

inline constexpr float kShC0 = 0.2820948f;  // 1 / (2 sqrt(pi))
inline constexpr size_t kShRestCoefficients = 15;
inline constexpr size_t kShRestFloats = 3 * kShRestCoefficients;

// `value` in 0..255.
constexpr float shDcFromColour(float value) {
  return (value / 255.0f - 0.5f) / kShC0;
}

}  // namespace quor::gs
