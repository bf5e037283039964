// The two shapes that the room is furnished with.
#pragma once

#include <optional>

#include "sample_capture/materials.h"
#include "sample_capture/vec3.h"

namespace quor::sample {

struct Ray {
  Vec3 origin;
  Vec3 direction;  // unit length
};

struct Ball {
  Vec3 centre;
  double radius = 0;

  // Does the ray come near enough to meet what lies within?
  bool mayMeet(const Ray& ray) const;
};

// A box turned about the vertical axis.
class Box {
 public:
  Box(Vec3 centre, Vec3 half, double yaw, Material material);

  // Distance along the ray to where it enters, if that is less than `limit`.
  std::optional<double> hit(const Ray& ray, double limit) const;
  Vec3 normal(Vec3 position) const;
  SurfacePoint surface(Vec3 position) const;  // without the footprint
  const Material& material() const { return material_; }
  const Ball& bounds() const { return bounds_; }

 private:
  Vec3 toLocal(Vec3 direction) const;
  Vec3 toWorld(Vec3 direction) const;

  Ball bounds_;
  Vec3 half_;
  double cos_, sin_;
  Material material_;
};

class Sphere {
 public:
  Sphere(Vec3 centre, double radius, Material material) : ball_{centre, radius}, material_(material) {}

  std::optional<double> hit(const Ray& ray, double limit) const;
  Vec3 normal(Vec3 position) const { return normalized(position - ball_.centre); }
  SurfacePoint surface(Vec3 position) const;
  const Material& material() const { return material_; }
  const Ball& bounds() const { return ball_; }

 private:
  Ball ball_;
  Material material_;
};

// A place on the surface of a box around the origin: its face's axis, the face's side, and the place's coordinates.
struct BoxFace {
  int axis = 0;     // 0 x, 1 y, 2 z
  double side = 1;  // -1 or 1
  double edge = 0;  // distance to the nearest edge
  double u = 0, v = 0;
};
BoxFace faceOf(Vec3 local, Vec3 half);

}  // namespace quor::sample
