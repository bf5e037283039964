// Where the cameras of a scene stand.
#pragma once

#include <array>
#include <vector>

#include "gs/render/camera.h"

namespace quor::gs {

// The extent is the trainer's unit of length: COLMAP scenes have none.
struct SceneGeometry {
  std::array<double, 3> centre = {0, 0, 0};  // mean of the camera centres
  double radius = 1;                         // largest distance of a camera centre from it; 1 when that is not > 1e-6
  double extent = 1.1;                       // 1.1 * radius
  // The mean of the cameras' up vectors, normalised; (0, -1, 0) when they disagree (the mean is shorter than 0.5).
  std::array<double, 3> up = {0, -1, 0};
};

SceneGeometry sceneGeometry(const std::vector<Camera>& cameras);

}  // namespace quor::gs
