#include "sfm/georeference/up_axis.h"

#include <Eigen/Eigenvalues>
#include <Eigen/Geometry>
#include <algorithm>
#include <cmath>
#include <numbers>

#include "sfm/georeference/similarity.h"

namespace quor {
namespace {

constexpr double kRadians = std::numbers::pi / 180;
constexpr int kReweightings = 20;
constexpr double kUsualRoll = 5 * kRadians;
constexpr double kMostRoll = 15 * kRadians;  // of a camera that agrees
constexpr double kFewestAgreeing = 0.6;      // of the cameras
// The photographs' own up decides only what their right sides leave open, such as the tilt when all look one way.
constexpr double kOwnUpWeight = 0.003;

// Their length is 1 when all agree and near 0 when they cancel out.
constexpr double kShortMean = 0.3;
constexpr double kLongMean = 0.8;
constexpr double kFlat = 0.2;           // thickness of a level flight, of its lesser width
constexpr double kStraightDown = 0.94;  // cosine

Eigen::Vector3d axisOf(const Eigen::Matrix3d& squares) {
  return Eigen::SelfAdjointEigenSolver<Eigen::Matrix3d>(squares).eigenvectors().col(0);  // of the least eigenvalue
}

std::optional<UpAxis> fromLevelFlight(const std::vector<CameraPose>& cameras) {
  Eigen::Vector3d forward = Eigen::Vector3d::Zero(), mean = Eigen::Vector3d::Zero();
  Places centres;
  for (const CameraPose& camera : cameras) {
    forward += camera.forward() / static_cast<double>(cameras.size());
    mean += camera.centre / static_cast<double>(cameras.size());
    centres.push_back(camera.centre);
  }
  const Eigen::Vector3d spreads = principalSpreads(centres, std::vector<double>(centres.size(), 1.0));
  if (forward.norm() < kLongMean || !(spreads[2] < kFlat * spreads[1])) return std::nullopt;
  Eigen::Matrix3d squares = Eigen::Matrix3d::Zero();
  for (const Eigen::Vector3d& centre : centres) squares += (centre - mean) * (centre - mean).transpose();
  const Eigen::Vector3d normal = axisOf(squares);
  const double down = normal.dot(forward.normalized());
  if (std::abs(down) < kStraightDown) return std::nullopt;
  return UpAxis{down > 0 ? Eigen::Vector3d(-normal) : normal, cameras.size(), true};
}

}  // namespace

CameraPose::CameraPose(const gs::colmap::Image& image) {
  const auto& [w, x, y, z] = image.qvec;
  cameraFromWorld = Eigen::Quaterniond(w, x, y, z).normalized().toRotationMatrix();
  centre = -cameraFromWorld.transpose() * Eigen::Vector3d(image.tvec[0], image.tvec[1], image.tvec[2]);
}

std::optional<UpAxis> upAxis(const std::vector<CameraPose>& cameras) {
  if (cameras.empty()) return std::nullopt;
  Eigen::Vector3d own = Eigen::Vector3d::Zero();
  for (const CameraPose& camera : cameras) own += camera.up() / static_cast<double>(cameras.size());
  if (own.norm() < kShortMean) return fromLevelFlight(cameras);

  const Eigen::Matrix3d besideOwn = Eigen::Matrix3d::Identity() - own.normalized() * own.normalized().transpose();
  Eigen::Vector3d up = own.normalized();
  for (int i = 0; i < kReweightings; ++i) {
    Eigen::Matrix3d squares = Eigen::Matrix3d::Zero();
    for (const CameraPose& camera : cameras) {
      const double roll = camera.right().dot(up) / kUsualRoll;
      squares += (camera.right() * camera.right().transpose() + kOwnUpWeight * besideOwn) / (1 + roll * roll);
    }
    up = axisOf(squares);
    if (up.dot(own) < 0) up = -up;
  }
  const auto agreeing = static_cast<size_t>(std::ranges::count_if(cameras, [&](const CameraPose& camera) {
    return std::abs(camera.right().dot(up)) < std::sin(kMostRoll) && camera.up().dot(up) > -std::sin(kMostRoll);
  }));
  if (static_cast<double>(agreeing) < kFewestAgreeing * static_cast<double>(cameras.size())) return std::nullopt;
  return UpAxis{up, agreeing};
}

}  // namespace quor
