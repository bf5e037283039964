// What stands where in the room.
#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "sample_capture/shapes.h"

namespace quor::sample {

inline constexpr Vec3 kRoomHalf{3.2, 2.9, 1.45};
inline constexpr Vec3 kRoomCentre{0, 0, 1.45};

struct Room {
  std::array<Material, 6> walls;  // -x, +x, -y, +y, floor, ceiling
  std::vector<Box> boxes;
  std::vector<Sphere> spheres;
};

// Objects stand within 1.3 m of the vertical axis or within 0.5 m of a wall; the ring between them is free for cameras.
Room furnishRoom(uint64_t seed);

}  // namespace quor::sample
