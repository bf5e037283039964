// What stands where in the room.
#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "sample_capture/shapes.h"

namespace quor::sample {

inline constexpr Vec3 kRoomHalf{3.2, 2.9, 1.45};
inline constexpr Vec3 kRoomCentre{0, 0, 1.45};

// Things that stand together, so that a ray that misses them all is done with them at once.
struct Group {
  Ball bounds;
  std::vector<Box> boxes;
  std::vector<Sphere> spheres;
};

struct Room {
  std::array<Material, 6> walls;  // -x, +x, -y, +y, floor, ceiling
  std::vector<Group> groups;
};

// Objects stand within 1.3 m of the vertical axis or within 0.5 m of a wall; the ring between them is free for cameras.
Room furnishRoom(uint64_t seed);

}  // namespace quor::sample
