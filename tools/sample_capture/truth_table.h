// The true cameras of a video's frames as a table, for footage that a COLMAP model cannot describe.
#pragma once

#include <filesystem>
#include <vector>

#include "sample_capture/pose.h"

namespace quor::sample {

// Comma-separated, one line of names, then a line for each lens of each frame:
//   frame           1, 2, ...
//   time            seconds from the first frame
//   lens            1, or 1 and 2
//   qw, qx, qy, qz  rotation from the world to the camera (+x right, +y down, +z forward; of a whole sphere the middle
//                   of its picture)
//   x, y, z         the camera's place in the world, in metres
// `lenses` holds the poses of each lens, frame by frame. Throws std::runtime_error.
void writeTruthTable(const std::filesystem::path& path, const std::vector<std::vector<Pose>>& lenses,
                     int framesPerSecond);

}  // namespace quor::sample
