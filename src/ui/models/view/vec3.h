// The little geometry that looking at a scene takes.
#pragma once

#include <array>
#include <cmath>

namespace quor::ui {

using Vec3 = std::array<double, 3>;

inline Vec3 operator+(const Vec3& a, const Vec3& b) {
  return {a[0] + b[0], a[1] + b[1], a[2] + b[2]};
}
inline Vec3 operator-(const Vec3& a, const Vec3& b) {
  return {a[0] - b[0], a[1] - b[1], a[2] - b[2]};
}
inline Vec3 operator*(double s, const Vec3& a) {
  return {s * a[0], s * a[1], s * a[2]};
}
inline double dot(const Vec3& a, const Vec3& b) {
  return a[0] * b[0] + a[1] * b[1] + a[2] * b[2];
}
inline Vec3 cross(const Vec3& a, const Vec3& b) {
  return {a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0]};
}
inline double length(const Vec3& a) {
  return std::hypot(a[0], a[1], a[2]);
}
// `otherwise` when there is no direction.
inline Vec3 normalised(const Vec3& a, const Vec3& otherwise) {
  const double l = length(a);
  return l > 1e-12 ? (1 / l) * a : otherwise;
}
// About a unit axis, by the right-hand rule.
inline Vec3 rotated(const Vec3& a, const Vec3& axis, double radians) {
  const double c = std::cos(radians), s = std::sin(radians);
  return c * a + s * cross(axis, a) + ((1 - c) * dot(axis, a)) * axis;
}

}  // namespace quor::ui
