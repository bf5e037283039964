#include "gs/render/camera.h"

namespace quor::gs {

std::array<double, 3> Camera::centre() const {
  const auto& r = rotation;
  const auto& t = translation;
  return {-(r[0] * t[0] + r[3] * t[1] + r[6] * t[2]), -(r[1] * t[0] + r[4] * t[1] + r[7] * t[2]),
          -(r[2] * t[0] + r[5] * t[1] + r[8] * t[2])};
}

std::array<double, 3> Camera::up() const {
  return {-rotation[3], -rotation[4], -rotation[5]};
}

Camera Camera::resized(int newWidth, int newHeight) const {
  const double sx = static_cast<double>(newWidth) / width;
  const double sy = static_cast<double>(newHeight) / height;
  Camera camera = *this;
  camera.width = newWidth;
  camera.height = newHeight;
  camera.fx *= sx;
  camera.cx *= sx;
  camera.fy *= sy;
  camera.cy *= sy;
  return camera;
}

}  // namespace quor::gs
