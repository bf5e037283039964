// The part of each undistorted frame that is kept for training.
#pragma once

#include <string>
#include <vector>

#include "settings/settings.h"

namespace quor {

// Fractions of the frame's width and height, from the left and from the top.
struct Crop {
  double minX = 0, maxX = 1;
  double minY = 0, maxY = 1;
  std::vector<std::string> messages;  // for the log: the crops made, and a crop that had to be reduced

  bool whole() const { return minX == 0 && maxX == 1 && minY == 0 && maxY == 1; }
};

// fisheyeCropEdges off every side and fisheyeCropBottom off the lower end, where the larger of the two counts. At least
// kMinKept of each side stays: the edge crop gives way first.
Crop frameCrop(const IngestSettings& settings);

inline constexpr double kMinKept = 0.25;

}  // namespace quor
