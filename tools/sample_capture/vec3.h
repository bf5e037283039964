// The little vector arithmetic that the ray tracer needs.
#pragma once

#include <cmath>

namespace quor::sample {

struct Vec3 {
  double x = 0, y = 0, z = 0;
};

inline Vec3 operator+(Vec3 a, Vec3 b) {
  return {a.x + b.x, a.y + b.y, a.z + b.z};
}
inline Vec3 operator-(Vec3 a, Vec3 b) {
  return {a.x - b.x, a.y - b.y, a.z - b.z};
}
inline Vec3 operator*(Vec3 a, double s) {
  return {a.x * s, a.y * s, a.z * s};
}
inline Vec3 operator*(Vec3 a, Vec3 b) {
  return {a.x * b.x, a.y * b.y, a.z * b.z};
}

inline double dot(Vec3 a, Vec3 b) {
  return a.x * b.x + a.y * b.y + a.z * b.z;
}
inline Vec3 cross(Vec3 a, Vec3 b) {
  return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x};
}
inline double length(Vec3 a) {
  return std::sqrt(dot(a, a));
}
inline Vec3 normalized(Vec3 a) {
  return a * (1.0 / length(a));
}
inline Vec3 mix(Vec3 a, Vec3 b, double t) {
  return a + (b - a) * t;
}

}  // namespace quor::sample
