#include "gs/data/source_camera.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>
#include <string>

namespace quor::gs {
namespace {

constexpr uint64_t kMaxEdge = 1 << 20;
// Of a focal length, in image edges.
constexpr double kMinFocal = 1e-3, kMaxFocal = 1e6;

void setIntrinsics(const colmap::Camera& from, SourceCamera& source) {
  const auto require = [&](bool valid, const char* what) {
    if (!valid) {
      throw std::runtime_error("Camera " + std::to_string(from.id) + " of the COLMAP model has no valid " + what + ".");
    }
  };
  if (!colmap::isSupported(from)) {
    throw std::runtime_error("Camera model " + colmap::modelName(from.model) +
                             " cannot be trained directly. Run COLMAP's image_undistorter first (the Camera Solve "
                             "stage does this).");
  }
  constexpr size_t kParameters[] = {3, 4, 4, 5, 8};  // by model; the text encoding does not enforce them
  require(from.params.size() >= kParameters[from.model], "number of parameters");
  require(from.width > 0 && from.height > 0 && std::max(from.width, from.height) <= kMaxEdge, "image size");

  Camera& camera = source.camera;
  camera.width = static_cast<int>(from.width);
  camera.height = static_cast<int>(from.height);
  colmap::intrinsics(from, camera.fx, camera.fy, camera.cx, camera.cy);
  const double edge = std::max(camera.width, camera.height);
  const auto focal = [&](double f) { return f >= kMinFocal * edge && f <= kMaxFocal * edge; };
  require(focal(camera.fx) && focal(camera.fy), "focal length");
  const auto inReach = [&](double c) { return std::abs(c) <= kMaxFocal * edge; };
  require(inReach(camera.cx) && inReach(camera.cy), "principal point");

  Distortion& d = source.distortion;
  colmap::distortion(from, d.k1, d.k2, d.p1, d.p2);
  require(std::isfinite(d.k1) && std::isfinite(d.k2) && std::isfinite(d.p1) && std::isfinite(d.p2), "lens distortion");
  if (d.none()) return;
  require(camera.cx > 0 && camera.cx < camera.width && camera.cy > 0 && camera.cy < camera.height,
          "principal point: with lens distortion it must lie inside the image");
}

// The rotation matrix of a unit quaternion w, x, y, z, row-major.
std::array<double, 9> rotationOf(double w, double x, double y, double z) {
  return {1 - 2 * (y * y + z * z), 2 * (x * y - w * z),     2 * (x * z + w * y),
          2 * (x * y + w * z),     1 - 2 * (x * x + z * z), 2 * (y * z - w * x),
          2 * (x * z - w * y),     2 * (y * z + w * x),     1 - 2 * (x * x + y * y)};
}

void setPose(const colmap::Image& image, Camera& camera) {
  const auto& q = image.qvec;
  const double length = std::sqrt(q[0] * q[0] + q[1] * q[1] + q[2] * q[2] + q[3] * q[3]);
  if (!std::isfinite(length) || length < 1e-12) {
    throw std::runtime_error("Image " + image.name + " of the COLMAP model has no valid rotation.");
  }
  if (!std::all_of(image.tvec.begin(), image.tvec.end(), isCoordinate)) {
    throw std::runtime_error("Image " + image.name + " of the COLMAP model has no valid translation.");
  }
  camera.rotation = rotationOf(q[0] / length, q[1] / length, q[2] / length, q[3] / length);
  camera.translation = image.tvec;
}

}  // namespace

bool isCoordinate(double value) {
  return std::abs(value) <= 1e12;
}

SourceCamera sourceCamera(const colmap::Model& model, const colmap::Image& image) {
  const auto camera = model.cameras.find(image.cameraId);
  if (camera == model.cameras.end()) {
    throw std::runtime_error("Image " + image.name + " belongs to camera " + std::to_string(image.cameraId) +
                             ", which the COLMAP model does not hold.");
  }
  SourceCamera source;
  setIntrinsics(camera->second, source);
  setPose(image, source.camera);
  return source;
}

}  // namespace quor::gs
