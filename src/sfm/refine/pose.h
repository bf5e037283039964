// Rigid motions between the frames of world, rig and camera.
#pragma once

#include <Eigen/Geometry>

#include "colmap/model.h"

namespace quor::refine {

// x_to = rotation * x_from + translation.
struct Pose {
  Eigen::Quaterniond rotation = Eigen::Quaterniond::Identity();
  Eigen::Vector3d translation = Eigen::Vector3d::Zero();

  Eigen::Vector3d centre() const { return -(rotation.conjugate() * translation); }
  Pose inverse() const { return {rotation.conjugate(), centre()}; }
  Pose operator*(const Pose& first) const {  // `first`, then this
    return {(rotation * first.rotation).normalized(), rotation * first.translation + translation};
  }
};
Pose poseOf(const gs::colmap::Image& image);  // world to camera
void setPose(gs::colmap::Image& image, const Pose& pose);

}  // namespace quor::refine
