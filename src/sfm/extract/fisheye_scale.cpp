#include "sfm/extract/fisheye_scale.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace quor {
namespace {

constexpr double kDegree = std::numbers::pi / 180;
constexpr double kWidestCorner = 67 * kDegree;
constexpr double kMeasurable = 80 * kDegree;  // COLMAP's rule goes by tangents of what the frame's border shows
constexpr double kWithinCircle = 0.97;

bool isFisheye(const gs::colmap::Camera& camera) {
  return gs::colmap::modelName(camera.model).ends_with("FISHEYE");
}

}  // namespace

std::optional<double> fisheyeScale(const gs::colmap::Camera& camera) {
  double fx = 0, fy = 0, cx = 0, cy = 0;
  if (!isFisheye(camera) || !gs::colmap::intrinsics(camera, fx, fy, cx, cy)) return std::nullopt;
  const double focal = std::min(fx, fy);
  if (!(focal > 0)) return std::nullopt;
  const double halfWidth = static_cast<double>(camera.width) / 2, halfHeight = static_cast<double>(camera.height) / 2;
  const double halfDiagonal = std::hypot(halfWidth, halfHeight);
  if (camera.width != camera.height && halfDiagonal / focal <= kMeasurable) return std::nullopt;
  const double corner = std::min(kWidestCorner, kWithinCircle * std::min(halfWidth, halfHeight) / focal);
  return std::tan(corner) * focal / halfDiagonal;
}

}  // namespace quor
