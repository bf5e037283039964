// What the ways of cameras through a room are put together from.
#pragma once

#include <algorithm>
#include <cmath>
#include <numbers>

#include "base/split_mix64.h"
#include "sample_capture/orbit.h"

namespace quor::sample {

inline constexpr double kFieldOfView = 62 * std::numbers::pi / 180;  // along the longer edge
inline constexpr double kRadius = 2.05;

inline PinholeView lensOf(const Orbit& orbit) {
  PinholeView lens;
  lens.width = orbit.size.width;
  lens.height = orbit.size.height;
  lens.fx = lens.fy = 0.5 * std::max(lens.width, lens.height) / std::tan(0.5 * kFieldOfView);
  lens.cx = 0.5 * lens.width;
  lens.cy = 0.5 * lens.height;
  return lens;
}

template <typename View>
View placed(const View& lens, const Pose& pose) {
  View view = lens;
  static_cast<Pose&>(view) = pose;
  return view;
}

inline SplitMix64 randomOf(const Orbit& orbit) {
  return SplitMix64::fromSeed(orbit.seed ^ 0x6f72626974ULL);
}

inline double startAngle(SplitMix64& random) {
  return std::numbers::pi * (2 * random.uniform() - 1);
}

inline double turnAt(const Orbit& orbit, int i) {
  return 2 * std::numbers::pi * i / orbit.count * (orbit.turn / 360);
}

inline Vec3 onOrbit(double radius, double angle, double height) {
  const double x = radius * std::cos(angle), y = radius * std::sin(angle);
  return {x, y, height};
}

}  // namespace quor::sample
