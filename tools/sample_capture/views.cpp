#include <cmath>
#include <numbers>

#include "base/split_mix64.h"
#include "sample_capture/capture.h"

namespace quor::sample {
namespace {

constexpr double kFieldOfView = 62 * std::numbers::pi / 180;  // along the longer edge
constexpr double kRadius = 2.05;

PinholeView lookAt(const PinholeView& lens, Vec3 eye, Vec3 target, double roll) {
  const Vec3 forward = normalized(target - eye);
  const Vec3 level = normalized(cross(forward, {0, 0, 1}));
  const Vec3 under = cross(forward, level);
  const Vec3 right = level * std::cos(roll) + under * std::sin(roll);
  const Vec3 down = cross(forward, right);
  PinholeView view = lens;
  view.rotation = {right.x, right.y, right.z, down.x, down.y, down.z, forward.x, forward.y, forward.z};
  view.translation = {-dot(right, eye), -dot(down, eye), -dot(forward, eye)};
  return view;
}

}  // namespace

Vec3 PinholeView::toCamera(Vec3 w) const {
  const auto row = [&](size_t i) {
    return rotation[3 * i] * w.x + rotation[3 * i + 1] * w.y + rotation[3 * i + 2] * w.z + translation[i];
  };
  return {row(0), row(1), row(2)};
}

Vec3 PinholeView::centre() const {
  const auto column = [&](size_t i) {
    return -(rotation[i] * translation[0] + rotation[3 + i] * translation[1] + rotation[6 + i] * translation[2]);
  };
  return {column(0), column(1), column(2)};
}

Ray PinholeView::rayThrough(double x, double y) const {
  const Vec3 d = normalized({(x - cx) / fx, (y - cy) / fy, 1});
  const auto column = [&](size_t i) { return rotation[i] * d.x + rotation[3 + i] * d.y + rotation[6 + i] * d.z; };
  return {centre(), {column(0), column(1), column(2)}};
}

std::vector<PinholeView> orbitViews(const Orbit& orbit) {
  PinholeView lens;
  lens.width = orbit.size.width;
  lens.height = orbit.size.height;
  lens.fx = lens.fy = 0.5 * std::max(lens.width, lens.height) / std::tan(0.5 * kFieldOfView);
  lens.cx = 0.5 * lens.width;
  lens.cy = 0.5 * lens.height;

  SplitMix64 random = SplitMix64::fromSeed(orbit.seed ^ 0x6f72626974ULL);
  const auto jitter = [&](double reach) { return reach * (2 * random.uniform() - 1); };
  const double start = std::numbers::pi * jitter(1);
  std::vector<PinholeView> views;
  for (int i = 0; i < orbit.count; ++i) {
    const double turn = 2 * std::numbers::pi * i / orbit.count;
    const double radius = kRadius + 0.12 * std::sin(2 * turn) + jitter(0.04);
    const double angle = start + turn;
    const double x = radius * std::cos(angle), y = radius * std::sin(angle);
    const Vec3 eye{x, y, 1.4 + 0.42 * std::sin(3 * turn) + jitter(0.06)};
    const double aimX = jitter(0.15), aimY = jitter(0.15), aimZ = 0.72 + jitter(0.1);
    views.push_back(lookAt(lens, eye, {aimX, aimY, aimZ}, jitter(0.04)));
  }
  return views;
}

}  // namespace quor::sample
