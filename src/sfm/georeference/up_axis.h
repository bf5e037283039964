// Which way is up in a solved model, by how people and aircraft hold cameras.
#pragma once

#include <Eigen/Core>
#include <optional>
#include <vector>

#include "colmap/model.h"

namespace quor {

struct CameraPose {
  explicit CameraPose(const gs::colmap::Image& image);

  Eigen::Vector3d right() const { return cameraFromWorld.row(0); }
  Eigen::Vector3d up() const { return -cameraFromWorld.row(1); }
  Eigen::Vector3d forward() const { return cameraFromWorld.row(2); }

  Eigen::Matrix3d cameraFromWorld;
  Eigen::Vector3d centre;
};

struct UpAxis {
  Eigen::Vector3d up;      // a unit vector
  size_t agreeing = 0;     // cameras that are held level with it
  bool looksDown = false;  // the plane of the cameras' centres says it, not the photographs' own up
};

// Cameras are tilted up and down, but seldom rolled: the axis is perpendicular to their right sides, as far as possible
// and whatever some of them say, on the side of the photographs' own up. Where these cancel out, because an aircraft
// looked straight down on several courses, it is perpendicular to the plane of the centres. Nothing when neither holds.
std::optional<UpAxis> upAxis(const std::vector<CameraPose>& cameras);

}  // namespace quor
