// The ways through a scene other than the smooth orbit, as a video's frames or as photographs.
#pragma once

#include <vector>

#include "sample_capture/orbit.h"
#include "sample_capture/room.h"

namespace quor::sample {

enum class Path {
  Orbit,  // around the middle, looking at it
  Walk,   // forward around the room, looking ahead
  Pan,    // from side to side, some turns so large that the pictures only just overlap
  Cuts    // three stretches of an orbit, each from another place than where the one before it ended
};

// One picture a place: orbit.count of them, orbit.turn / 360 of the whole way; a video follows an orbit more smoothly
// than photographs do. The scene decides alone in a corridor, which is walked through, and on a turntable, before which
// the camera stands still.
std::vector<PinholeView> pathViews(SceneKind scene, Path path, const Orbit& orbit, bool video);

}  // namespace quor::sample
