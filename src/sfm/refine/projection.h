// COLMAP's camera models as functions from a point in the camera's frame to pixels, for values and for automatic
// derivatives alike (https://colmap.github.io/cameras.html).
//
// They agree with COLMAP's own where those are smooth. A fisheye model here takes the angle from the axis by its
// tangent's two parts instead of their quotient, so it goes on beyond 90 degrees: in COLMAP's, a point that drifts
// there meets a wall that halts the whole adjustment.
#pragma once

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>

namespace quor::refine {

// A point beside a pinhole camera or behind it is taken for one at this share of its distance from the image plane.
inline constexpr double kNearestPlane = 1e-3;

template <typename T>
struct Plane {
  T x, y;
};

template <typename T>
Plane<T> onPlane(const T* point) {
  using std::sqrt;
  const T distance = sqrt(point[0] * point[0] + point[1] * point[1] + point[2] * point[2]);
  const T nearest = T(kNearestPlane) * distance;
  const T z = point[2] > nearest ? point[2] : nearest;
  return {point[0] / z, point[1] / z};
}

// The direction's angle from the axis as a distance from the middle, in its direction from there.
template <typename T>
Plane<T> byAngle(const T* point) {
  using std::atan2;
  using std::sqrt;
  const T square = point[0] * point[0] + point[1] * point[1];
  if (square < T(1e-20)) return {point[0] / point[2], point[1] / point[2]};
  const T radius = sqrt(square);
  const T scale = atan2(radius, point[2]) / radius;
  return {point[0] * scale, point[1] * scale};
}

// Of each model: COLMAP's id, the number of its parameters, how many of the first are focal lengths, whether its plane
// is that of angles, and the distortion: what the parameters behind the principal point do to a place on the plane.
struct SimplePinhole {
  static constexpr int32_t kId = 0;
  static constexpr int kParameters = 3, kFocals = 1;
  static constexpr bool kFisheye = false;
  template <typename T>
  static Plane<T> distort(const T*, const Plane<T>& at) {
    return at;
  }
};
struct Pinhole : SimplePinhole {
  static constexpr int32_t kId = 1;
  static constexpr int kParameters = 4, kFocals = 2;
};
struct SimpleRadial {
  static constexpr int32_t kId = 2;
  static constexpr int kParameters = 4, kFocals = 1;
  static constexpr bool kFisheye = false;
  template <typename T>
  static Plane<T> distort(const T* k, const Plane<T>& at) {
    const T scale = T(1) + k[0] * (at.x * at.x + at.y * at.y);
    return {at.x * scale, at.y * scale};
  }
};
struct Radial {
  static constexpr int32_t kId = 3;
  static constexpr int kParameters = 5, kFocals = 1;
  static constexpr bool kFisheye = false;
  template <typename T>
  static Plane<T> distort(const T* k, const Plane<T>& at) {
    const T r2 = at.x * at.x + at.y * at.y;
    const T scale = T(1) + r2 * (k[0] + r2 * k[1]);
    return {at.x * scale, at.y * scale};
  }
};
struct OpenCv {
  static constexpr int32_t kId = 4;
  static constexpr int kParameters = 8, kFocals = 2;
  static constexpr bool kFisheye = false;
  template <typename T>
  static Plane<T> distort(const T* k, const Plane<T>& at) {
    const T xx = at.x * at.x, yy = at.y * at.y, xy = at.x * at.y, r2 = xx + yy;
    const T scale = T(1) + r2 * (k[0] + r2 * k[1]);
    return {at.x * scale + T(2) * k[2] * xy + k[3] * (r2 + T(2) * xx),
            at.y * scale + T(2) * k[3] * xy + k[2] * (r2 + T(2) * yy)};
  }
};
struct OpenCvFisheye {
  static constexpr int32_t kId = 5;
  static constexpr int kParameters = 8, kFocals = 2;
  static constexpr bool kFisheye = true;
  template <typename T>
  static Plane<T> distort(const T* k, const Plane<T>& at) {
    const T r2 = at.x * at.x + at.y * at.y;
    const T scale = T(1) + r2 * (k[0] + r2 * (k[1] + r2 * (k[2] + r2 * k[3])));
    return {at.x * scale, at.y * scale};
  }
};
struct SimpleRadialFisheye : SimpleRadial {
  static constexpr int32_t kId = 8;
  static constexpr bool kFisheye = true;
};
struct RadialFisheye : Radial {
  static constexpr int32_t kId = 9;
  static constexpr bool kFisheye = true;
};

template <typename Camera, typename T>
Plane<T> project(const T* parameters, const T* point) {
  const T* centre = parameters + Camera::kFocals;
  const Plane<T> at = Camera::template distort<T>(centre + 2, Camera::kFisheye ? byAngle(point) : onPlane(point));
  return {parameters[0] * at.x + centre[0], parameters[Camera::kFocals - 1] * at.y + centre[1]};
}

// The unit direction that a pixel shows: the distortion is undone by steps that take back what is left of it, which
// settles within a few for real lenses.
template <typename Camera>
std::array<double, 3> direction(const double* parameters, double x, double y) {
  const double* centre = parameters + Camera::kFocals;
  const Plane<double> seen = {(x - centre[0]) / parameters[0], (y - centre[1]) / parameters[Camera::kFocals - 1]};
  Plane<double> at = seen;
  for (int i = 0; i < 12; ++i) {
    const Plane<double> back = Camera::template distort<double>(centre + 2, at);
    at = {at.x - (back.x - seen.x), at.y - (back.y - seen.y)};
  }
  const double radius = std::hypot(at.x, at.y);
  if (Camera::kFisheye) {
    const double scale = radius > 0 ? std::sin(radius) / radius : 1;
    return {at.x * scale, at.y * scale, std::cos(radius)};
  }
  const double length = std::hypot(radius, 1);
  return {at.x / length, at.y / length, 1 / length};
}

// Calls visit(Camera()) for the model of that id; false when it is not one of those above.
template <typename Visit>
bool visitCamera(int32_t model, Visit&& visit) {
  const auto tryOne = [&]<typename Camera>(Camera camera) {
    if (model != Camera::kId) return false;
    visit(camera);
    return true;
  };
  return tryOne(SimplePinhole()) || tryOne(Pinhole()) || tryOne(SimpleRadial()) || tryOne(Radial()) ||
         tryOne(OpenCv()) || tryOne(OpenCvFisheye()) || tryOne(SimpleRadialFisheye()) || tryOne(RadialFisheye());
}

}  // namespace quor::refine
