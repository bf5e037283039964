#include "sample_capture/shapes.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace quor::sample {
namespace {

constexpr double kNearest = 1e-6;
constexpr double kNoEdge = 1e3;

}  // namespace

bool Ball::mayMeet(const Ray& ray) const {
  const Vec3 to = centre - ray.origin;
  const double along = dot(to, ray.direction);
  const double distance2 = dot(to, to);
  const double reach2 = radius * radius;
  return (along > 0 || distance2 < reach2) && distance2 - along * along < reach2;
}

BoxFace faceOf(Vec3 local, Vec3 half) {
  const std::array<double, 3> margin = {half.x - std::abs(local.x), half.y - std::abs(local.y),
                                        half.z - std::abs(local.z)};
  BoxFace face;
  face.axis = static_cast<int>(std::min_element(margin.begin(), margin.end()) - margin.begin());
  const auto axis = static_cast<size_t>(face.axis);
  face.edge = std::min(margin[(axis + 1) % 3], margin[(axis + 2) % 3]);
  const std::array<double, 3> at = {local.x, local.y, local.z};
  face.side = at[axis] < 0 ? -1 : 1;
  face.u = axis == 0 ? local.y : local.x;
  face.v = axis == 2 ? local.y : local.z;
  return face;
}

Box::Box(Vec3 centre, Vec3 half, double yaw, Material material)
    : bounds_{centre, length(half)}, half_(half), cos_(std::cos(yaw)), sin_(std::sin(yaw)), material_(material) {}

Vec3 Box::toLocal(Vec3 d) const {
  return {cos_ * d.x + sin_ * d.y, cos_ * d.y - sin_ * d.x, d.z};
}

Vec3 Box::toWorld(Vec3 d) const {
  return {cos_ * d.x - sin_ * d.y, sin_ * d.x + cos_ * d.y, d.z};
}

std::optional<double> Box::hit(const Ray& ray, double limit) const {
  if (!bounds_.mayMeet(ray)) return {};
  const Vec3 origin = toLocal(ray.origin - bounds_.centre);
  const Vec3 direction = toLocal(ray.direction);
  double enter = -1e30, leave = 1e30;
  const auto slab = [&](double o, double d, double half) {
    const double inverse = 1 / d;
    const double a = (-half - o) * inverse, b = (half - o) * inverse;
    enter = std::max(enter, std::min(a, b));
    leave = std::min(leave, std::max(a, b));
  };
  slab(origin.x, direction.x, half_.x);
  slab(origin.y, direction.y, half_.y);
  slab(origin.z, direction.z, half_.z);
  if (enter > leave || enter < kNearest || enter >= limit) return {};
  return enter;
}

Vec3 Box::normal(Vec3 position) const {
  const BoxFace face = faceOf(toLocal(position - bounds_.centre), half_);
  const Vec3 n{face.axis == 0 ? face.side : 0, face.axis == 1 ? face.side : 0, face.axis == 2 ? face.side : 0};
  return toWorld(n);
}

SurfacePoint Box::surface(Vec3 position) const {
  const Vec3 local = toLocal(position - bounds_.centre);
  const BoxFace face = faceOf(local, half_);
  // Each face takes its own piece of the pattern.
  const double shift = 3.7 * (face.axis * 2 + face.side);
  return {local, face.u + shift, face.v + half_.z, face.edge, 0};
}

std::optional<double> Sphere::hit(const Ray& ray, double limit) const {
  const Vec3 to = ball_.centre - ray.origin;
  const double along = dot(to, ray.direction);
  const double inside = ball_.radius * ball_.radius - (dot(to, to) - along * along);
  if (inside <= 0) return {};
  const double distance = along - std::sqrt(inside);
  if (distance < kNearest || distance >= limit) return {};
  return distance;
}

SurfacePoint Sphere::surface(Vec3 position) const {
  const Vec3 local = position - ball_.centre;
  return {local, ball_.radius * std::atan2(local.y, local.x), local.z, kNoEdge, 0};
}

}  // namespace quor::sample
