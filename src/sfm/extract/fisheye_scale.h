// How large the pinhole image of a fisheye frame becomes.
#pragma once

#include <optional>

#include "colmap/model.h"

namespace quor {

// The side of the pinhole image over that of the frame, at the frame's focal length, for a lens whose frame COLMAP
// cannot measure: one that shows directions beside itself, or whose image circle lies within its square frame. The
// image's corners then lie 67 degrees off the axis (118 degrees from side to side; further out a pinhole image is
// mostly stretch), or just within the image circle of a narrower lens. Nothing for all other cameras: COLMAP itself
// then cuts the largest image that has no blank pixels.
std::optional<double> fisheyeScale(const gs::colmap::Camera& camera);

}  // namespace quor
