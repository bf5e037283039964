#include "ui/models/view/orbit_camera.h"

#include <algorithm>
#include <cmath>

namespace quor::ui {
namespace {

constexpr double kSteepest = 0.995;  // cosine between view and up axis
constexpr double kNearest = 1e-4;
constexpr double kDollyStep = 0.1;

}  // namespace

void OrbitCamera::turn(double sideways, double upwards) {
  const auto about = [&](const Vec3& axis, double angle) {
    right_ = rotated(right_, axis, angle);
    down_ = rotated(down_, axis, angle);
    forward_ = rotated(forward_, axis, angle);
  };
  about(up_, sideways);
  const double before = dot(forward_, up_);
  const double after = dot(rotated(forward_, right_, upwards), up_);
  // Out of a pose that is too steep already, one may always go back.
  if (std::abs(after) < kSteepest || std::abs(after) < std::abs(before)) about(right_, upwards);
  // Thousands of small turns must not bend the axes.
  forward_ = normalised(forward_, {0, 0, 1});
  right_ = normalised(right_ - dot(right_, forward_) * forward_, {1, 0, 0});
  down_ = cross(forward_, right_);
}

void OrbitCamera::orbit(double sideways, double upwards) {
  const Vec3 centre = target();
  turn(sideways, upwards);
  eye_ = centre - distance_ * forward_;
}

void OrbitCamera::look(double sideways, double upwards) {
  turn(sideways, upwards);
}

void OrbitCamera::pan(double right, double down) {
  const double height = 2 * tanHalfHeight_ * distance_;
  eye_ = eye_ - (height * right) * right_ - (height * down) * down_;
}

void OrbitCamera::dolly(double steps) {
  const Vec3 centre = target();
  distance_ = std::max(distance_ * std::pow(1 - kDollyStep, steps), kNearest);
  eye_ = centre - distance_ * forward_;
}

void OrbitCamera::fly(const Vec3& steps) {
  eye_ = eye_ + distance_ * (steps[0] * right_ + steps[1] * down_ + steps[2] * forward_);
}

void OrbitCamera::setUp(const Vec3& up) {
  up_ = normalised(up, {0, -1, 0});
  straighten();
}

// Rolls the picture until its vertical is the up axis's.
void OrbitCamera::straighten() {
  const Vec3 right = cross(forward_, up_);
  if (length(right) < 0.05) return;  // looking along it
  right_ = normalised(right, right_);
  down_ = cross(forward_, right_);
}

void OrbitCamera::frame(const Vec3& centre, double radius) {
  distance_ = std::max(1.6 * radius / tanHalfHeight_, kNearest);
  // Any direction across the up axis will do; a quarter of a right angle above the horizon shows the ground.
  const Vec3 aside = std::abs(up_[0]) < 0.9 ? Vec3{1, 0, 0} : Vec3{0, 0, 1};
  const Vec3 level = normalised(cross(aside, up_), {0, 0, 1});
  forward_ = normalised(level - 0.4 * up_, level);
  straighten();
  eye_ = centre - distance_ * forward_;
}

void OrbitCamera::take(const gs::Camera& photograph, double distance) {
  const auto& r = photograph.rotation;
  right_ = {r[0], r[1], r[2]};
  down_ = {r[3], r[4], r[5]};
  forward_ = {r[6], r[7], r[8]};
  eye_ = photograph.centre();
  distance_ = std::max(distance, kNearest);
  tanHalfHeight_ = 0.5 * photograph.height / photograph.fy;
}

gs::Camera OrbitCamera::camera(int width, int height) const {
  gs::Camera camera;
  camera.width = width;
  camera.height = height;
  camera.fx = camera.fy = 0.5 * height / tanHalfHeight_;
  camera.cx = 0.5 * width;
  camera.cy = 0.5 * height;
  camera.rotation = {right_[0], right_[1],   right_[2],   down_[0],   down_[1],
                     down_[2],  forward_[0], forward_[1], forward_[2]};
  camera.translation = {-dot(right_, eye_), -dot(down_, eye_), -dot(forward_, eye_)};
  return camera;
}

}  // namespace quor::ui
