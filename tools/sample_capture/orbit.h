// The ways that cameras take around the middle of the room, whose axis is the world's z axis.
#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "base/image/image.h"
#include "sample_capture/views.h"

namespace quor::sample {

struct Orbit {
  int count = 36;  // of places on the way
  ImageSize size = {320, 213};
  uint64_t seed = 1;
  double turn = 360;  // degrees around the middle from the first place to where one more would follow the last
};

// Rising and sinking, always looking at what stands in the middle. A photographer stops here and there; a video follows
// the same way smoothly.
std::vector<PinholeView> orbitViews(const Orbit& orbit);
std::vector<PinholeView> videoViews(const Orbit& orbit);

// Upright, the sphere's middle looking where the camera is heading.
std::vector<EquirectangularView> equirectangularViews(const Orbit& orbit);

// Two lenses back to back: the views of the first, then those of the second. The pair turns three times as it
// goes around once, so that each lens sees before long what the other has seen: opposite lenses share next to nothing
// at any one time.
std::array<std::vector<FisheyeView>, 2> fisheyeViews(const Orbit& orbit);

}  // namespace quor::sample
