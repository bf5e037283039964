// What stands where in the room.
#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "sample_capture/shapes.h"

namespace quor::sample {

enum class SceneKind {
  Room,              // richly furnished, every place unlike any other
  Symmetric,         // a large object that looks the same after half a turn, between plain walls
  Corridor,          // doors that repeat exactly, with few details to tell them apart
  Turntable,         // the middle of the room, turning before a camera that stands still, between plain walls
  TexturedTurntable  // the same between the room's own walls, which do not turn
};

// Things that stand together, so that a ray that misses them all is done with them at once.
struct Group {
  Ball bounds;
  std::vector<Box> boxes;
  std::vector<Sphere> spheres;
};

// A closed box with things in it, whose floor is at height 0.
struct Room {
  Vec3 half{3.2, 2.9, 1.45};
  Vec3 lamp{0.9, -0.7, 2.6};
  double lampLight = 0.5;         // 0: lit evenly, without shadows
  bool staysWithCamera = false;   // walls and lamp go around with the camera: in truth the things turn
  std::array<Material, 6> walls;  // -x, +x, -y, +y, floor, ceiling
  std::vector<Group> groups;

  Vec3 centre() const { return {0, 0, half.z}; }
};

// Objects stand within 1.3 m of the vertical axis or within 0.5 m of a wall; the ring between them is free for cameras.
// A corridor runs along x and is free in the middle.
Room furnish(SceneKind kind, uint64_t seed);

}  // namespace quor::sample
