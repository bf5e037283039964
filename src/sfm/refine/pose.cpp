#include "sfm/refine/pose.h"

namespace quor::refine {

Pose poseOf(const gs::colmap::Image& image) {
  const auto& q = image.qvec;
  return {Eigen::Quaterniond(q[0], q[1], q[2], q[3]).normalized(), Eigen::Vector3d(image.tvec.data())};
}

void setPose(gs::colmap::Image& image, const Pose& pose) {
  image.qvec = {pose.rotation.w(), pose.rotation.x(), pose.rotation.y(), pose.rotation.z()};
  image.tvec = {pose.translation.x(), pose.translation.y(), pose.translation.z()};
}

}  // namespace quor::refine
