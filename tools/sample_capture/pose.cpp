#include "sample_capture/pose.h"

#include <algorithm>

namespace quor::sample {

Vec3 Pose::toCamera(Vec3 w) const {
  const auto row = [&](size_t i) {
    return rotation[3 * i] * w.x + rotation[3 * i + 1] * w.y + rotation[3 * i + 2] * w.z + translation[i];
  };
  return {row(0), row(1), row(2)};
}

Vec3 Pose::centre() const {
  const auto column = [&](size_t i) {
    return -(rotation[i] * translation[0] + rotation[3 + i] * translation[1] + rotation[6 + i] * translation[2]);
  };
  return {column(0), column(1), column(2)};
}

Vec3 Pose::toWorld(Vec3 d) const {
  const auto column = [&](size_t i) { return rotation[i] * d.x + rotation[3 + i] * d.y + rotation[6 + i] * d.z; };
  return {column(0), column(1), column(2)};
}

Pose lookAlong(Vec3 eye, Vec3 forward, double roll) {
  const Vec3 level = normalized(cross(forward, {0, 0, 1}));
  const Vec3 under = cross(forward, level);
  const Vec3 right = level * std::cos(roll) + under * std::sin(roll);
  const Vec3 down = cross(forward, right);
  return {{right.x, right.y, right.z, down.x, down.y, down.z, forward.x, forward.y, forward.z},
          {-dot(right, eye), -dot(down, eye), -dot(forward, eye)}};
}

// Shepperd 1978: the largest component first, for accuracy.
std::array<double, 4> quaternionOf(const std::array<double, 9>& r) {
  const std::array<double, 4> squares = {1 + r[0] + r[4] + r[8], 1 + r[0] - r[4] - r[8], 1 - r[0] + r[4] - r[8],
                                         1 - r[0] - r[4] + r[8]};
  const auto largest = std::max_element(squares.begin(), squares.end()) - squares.begin();
  const double s = 0.5 / std::sqrt(squares[static_cast<size_t>(largest)]);
  const double wx = (r[7] - r[5]) * s, wy = (r[2] - r[6]) * s, wz = (r[3] - r[1]) * s;
  const double xy = (r[1] + r[3]) * s, xz = (r[2] + r[6]) * s, yz = (r[5] + r[7]) * s;
  const double self = 0.25 / s;
  switch (largest) {
    case 0:
      return {self, wx, wy, wz};
    case 1:
      return {wx, self, xy, xz};
    case 2:
      return {wy, xy, self, yz};
    default:
      return {wz, xz, yz, self};
  }
}

}  // namespace quor::sample
