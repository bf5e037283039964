// One pinhole view. World to camera: x_c = rotation * x_w + translation, with +x right, +y down, +z forward. Pixel (i,
// j) has its centre at (i + 0.5, j + 0.5) and the principal point is given in that frame.
#pragma once

#include <array>

namespace quor::gs {

struct Camera {
  int width = 0;
  int height = 0;
  double fx = 0, fy = 0, cx = 0, cy = 0;                         // pixels
  std::array<double, 9> rotation = {1, 0, 0, 0, 1, 0, 0, 0, 1};  // camera_from_world, row-major
  std::array<double, 3> translation = {0, 0, 0};

  std::array<double, 3> centre() const;  // -R^T t, world
  std::array<double, 3> up() const;      // the camera's up (-y) in the world
  // The same view at another pixel size.
  Camera resized(int newWidth, int newHeight) const;

  friend bool operator==(const Camera&, const Camera&) = default;
};

}  // namespace quor::gs
