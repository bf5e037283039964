// Which tracks of a video are the lenses of a dual-fisheye camera.
#pragma once

#include <optional>
#include <utility>
#include <vector>

#include "ingest/video/video_file.h"

namespace quor {

// Indices of the first two square tracks of one size, or nothing.
std::optional<std::pair<size_t, size_t>> lensPair(const std::vector<VideoTrack>& tracks);

}  // namespace quor
