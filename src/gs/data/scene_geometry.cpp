#include "gs/data/scene_geometry.h"

#include <algorithm>
#include <cmath>

namespace quor::gs {

SceneGeometry sceneGeometry(const std::vector<Camera>& cameras) {
  SceneGeometry geometry;
  if (cameras.empty()) return geometry;
  const double share = 1.0 / static_cast<double>(cameras.size());
  std::array<double, 3> up = {0, 0, 0};
  for (const Camera& camera : cameras) {
    const auto centre = camera.centre();
    const auto cameraUp = camera.up();
    for (size_t a = 0; a < 3; ++a) {
      geometry.centre[a] += share * centre[a];
      up[a] += share * cameraUp[a];
    }
  }
  double radius = 0;
  for (const Camera& camera : cameras) {
    const auto centre = camera.centre();
    radius = std::max(radius, std::hypot(centre[0] - geometry.centre[0], centre[1] - geometry.centre[1],
                                         centre[2] - geometry.centre[2]));
  }
  geometry.radius = radius > 1e-6 ? radius : 1.0;
  geometry.extent = 1.1 * geometry.radius;

  // A short mean of unit vectors says that the cameras do not agree on what is up.
  const double length = std::hypot(up[0], up[1], up[2]);
  if (length >= 0.5) geometry.up = {up[0] / length, up[1] / length, up[2] / length};
  return geometry;
}

}  // namespace quor::gs
