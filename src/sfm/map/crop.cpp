#include "sfm/map/crop.h"

#include <algorithm>

#include "base/text/text.h"

namespace quor {
namespace {

// Settings may hold anything, NaN too.
double fraction(double value, double most) {
  return value > 0 ? std::min(value, most) : 0;
}

std::string percent(double value) {
  return formatText("%.3g%%", 100 * value);
}

}  // namespace

Crop frameCrop(const IngestSettings& settings) {
  const double bottom = fraction(settings.fisheyeCropBottom, 1 - kMinKept);
  const double wanted = fraction(settings.fisheyeCropEdges, 1);
  const double edge = std::min({wanted, (1 - kMinKept) / 2, 1 - kMinKept - bottom});

  Crop crop;
  if (edge < wanted) {
    crop.messages.push_back("Edge crop reduced from " + percent(wanted) + " to " + percent(edge) +
                            " — with the bottom crop it would have left too little of the frame to train on.");
  }
  if (edge > 0) crop.messages.push_back("Cropping " + percent(edge) + " off every side of each undistorted frame");
  if (bottom > 0) crop.messages.push_back("Cropping the lower " + percent(bottom) + " of each undistorted frame");
  crop.minX = crop.minY = edge;
  crop.maxX = 1 - edge;
  crop.maxY = 1 - std::max(edge, bottom);
  return crop;
}

}  // namespace quor
