// A furnished room, closed on all sides, seen from within. The world's z axis points up; lengths are metres. The same
// kind and seed always give the same room. Everything is const after construction and may be used from any thread.
#pragma once

#include <cstdint>

#include "sample_capture/pose.h"
#include "sample_capture/room.h"

namespace quor::sample {

class Scene {
 public:
  explicit Scene(uint64_t seed) : Scene(SceneKind::Room, seed) {}
  Scene(SceneKind kind, uint64_t seed) : room_(furnish(kind, seed)) {}

  // The scene as it is when a camera there takes its picture. On a turntable the world is that of the things that turn,
  // so walls and lamp have gone around with the camera; elsewhere this is the same scene.
  Scene seenBy(const Pose& camera) const;

  struct Hit {
    double distance = 0;
    Vec3 position;
    Vec3 normal;
    SurfacePoint surface;
    Material material;
    bool still = true;  // does the place stay where it is, whichever camera looks?
  };

  static constexpr int kLightSamples = 16;

  // The colour that a ray from inside the room sees; it always meets a wall in the end.
  Hit trace(const Ray& ray) const;

  // Distance to the surface that the ray meets.
  double distance(const Ray& ray) const;

  // The lit colour, display values 0..1, of a surface of which a pixel covers `footprint` metres. The lamp is a square:
  // the colour lit by one of its kLightSamples points, or by all of them.
  Vec3 colour(const Hit& hit, double footprint, int lightSample) const;
  Vec3 colour(const Hit& hit, double footprint) const;

 private:
  struct Nearest {
    double distance = 0;
    const Box* box = nullptr;
    const Sphere* sphere = nullptr;
  };
  Nearest nearest(const Ray& ray) const;
  bool lit(Vec3 position, Vec3 lamp) const;
  Vec3 shade(Vec3 albedo, const Hit& hit, Vec3 lamp) const;
  double openness(Vec3 position, Vec3 normal) const;
  double exitDistance(const Ray& ray) const;
  Vec3 lampPoint(int sample) const;
  // From the world to the frame of walls and lamp, and back.
  Vec3 toRoom(Vec3 v) const { return {cos_ * v.x + sin_ * v.y, cos_ * v.y - sin_ * v.x, v.z}; }
  Vec3 toWorld(Vec3 v) const { return {cos_ * v.x - sin_ * v.y, cos_ * v.y + sin_ * v.x, v.z}; }

  Room room_;
  double cos_ = 1, sin_ = 0;  // of the angle by which walls and lamp are turned
};

}  // namespace quor::sample
