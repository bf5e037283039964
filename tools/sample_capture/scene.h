// A furnished room, closed on all sides, seen from within. The world's z axis points up; lengths are metres. The same
// seed always gives the same room. Everything is const after construction and may be used from any thread.
#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "sample_capture/room.h"

namespace quor::sample {

class Scene {
 public:
  explicit Scene(uint64_t seed);

  struct Hit {
    double distance = 0;
    Vec3 position;
    Vec3 normal;
    SurfacePoint surface;
    Material material;
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

  std::array<Material, 6> walls_;  // -x, +x, -y, +y, floor, ceiling
  std::vector<Group> groups_;
};

}  // namespace quor::sample
