#include "sample_capture/views.h"

namespace quor::sample {

Ray PinholeView::rayThrough(double x, double y) const {
  return {centre(), toWorld(normalized({(x - cx) / fx, (y - cy) / fy, 1}))};
}

Ray EquirectangularView::rayThrough(double x, double y) const {
  const double yaw = (x / width - 0.5) * 2 * std::numbers::pi;
  const double pitch = (0.5 - y / height) * std::numbers::pi;
  return {centre(), toWorld({std::cos(pitch) * std::sin(yaw), -std::sin(pitch), std::cos(pitch) * std::cos(yaw)})};
}

Ray FisheyeView::rayThrough(double x, double y) const {
  const double dx = x - 0.5 * width, dy = y - 0.5 * height;
  const double radius = std::hypot(dx, dy), theta = radius / pixelsPerRadian();
  const double sideways = radius > 0 ? std::sin(theta) / radius : 0;
  return {centre(), toWorld({sideways * dx, sideways * dy, std::cos(theta)})};
}

}  // namespace quor::sample
