// Where a camera stands and how it is turned: x_camera = rotation * x_world + translation. In the camera's frame +x
// points right, +y down and +z forward.
#pragma once

#include <array>

#include "sample_capture/vec3.h"

namespace quor::sample {

struct Pose {
  std::array<double, 9> rotation = {1, 0, 0, 0, 1, 0, 0, 0, 1};  // camera_from_world, row-major
  std::array<double, 3> translation = {0, 0, 0};

  Vec3 toCamera(Vec3 world) const;
  Vec3 centre() const;
  // Turns a direction of the camera's frame into the world's.
  Vec3 toWorld(Vec3 direction) const;
};

// Stands at `eye` and looks along `forward` (of length one, not straight up or down), turned about it by `roll`
// radians.
Pose lookAlong(Vec3 eye, Vec3 forward, double roll);

// w x y z of a rotation matrix.
std::array<double, 4> quaternionOf(const std::array<double, 9>& rotation);

}  // namespace quor::sample
