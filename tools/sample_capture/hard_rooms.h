// Rooms that mislead a camera solve: from two places in them nearly everything looks the same.
#pragma once

#include "sample_capture/room.h"

namespace quor::sample {

// From one door of the corridor to the next, about as much as a picture shows.
inline constexpr double kDoorPitch = 3;
// From the corridor's middle to where the cameras' way through it begins and ends.
inline constexpr double kCorridorReach = 4.5;

// What stands in the middle looks the same after half a turn about the vertical axis, in its patterns and its light.
// One picture on a plain wall tells the two sides apart.
Room furnishSymmetric(uint64_t seed);

// From one door to the next everything repeats, but for small signs at two of the doors.
Room furnishCorridor(uint64_t seed);

}  // namespace quor::sample
