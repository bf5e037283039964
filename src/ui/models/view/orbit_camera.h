// The eye of the person at the window: circles a point, slides, comes nearer, flies. Keeps a whole orientation rather
// than two angles, so that it can take over the pose of any photograph and go on from there.
#pragma once

#include "gs/render/camera.h"
#include "ui/models/view/vec3.h"

namespace quor::ui {

class OrbitCamera {
 public:
  // Radians about the up axis and about the camera's right; stops short of looking straight along the up axis.
  void orbit(double sideways, double upwards);
  // The same, but the eye stays where it is.
  void look(double sideways, double upwards);
  // In heights of the picture at the distance of the point that is circled: the scene follows the hand.
  void pan(double right, double down);
  // Each step comes nearer by a tenth.
  void dolly(double steps);
  // Along the camera's right, down and forward, in units of the distance to the point that is circled.
  void fly(const Vec3& steps);

  // The up axis of orbit(); rolls the eye so that the picture stands upright.
  void setUp(const Vec3& up);
  const Vec3& up() const { return up_; }

  // Sees a ball whole, from the side and a little above.
  void frame(const Vec3& centre, double radius);
  // The pose and vertical field of view of a photograph, orbiting the point `distance` in front of it.
  void take(const gs::Camera& photograph, double distance);

  gs::Camera camera(int width, int height) const;
  const Vec3& eye() const { return eye_; }
  Vec3 target() const { return eye_ + distance_ * forward_; }
  double distance() const { return distance_; }

 private:
  void turn(double sideways, double upwards);
  void straighten();

  Vec3 up_ = {0, -1, 0};
  Vec3 eye_ = {0, 0, -3};
  Vec3 right_ = {1, 0, 0}, down_ = {0, 1, 0}, forward_ = {0, 0, 1};
  double distance_ = 3;
  double tanHalfHeight_ = 0.4663;  // 50 degrees
};

}  // namespace quor::ui
