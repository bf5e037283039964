#include "sfm/extract/fisheye_mask.h"

#include <algorithm>
#include <cmath>
#include <numbers>

#include "base/text/text.h"

namespace quor {
namespace {

constexpr double kDegree = std::numbers::pi / 180;
constexpr double kMinFieldOfView = 10;  // degrees, as in the lens's camera seed
constexpr double kWidestAngle = 85;     // degrees off the axis

double rimMargin(const IngestSettings& settings) {
  return settings.fisheyeEdgeMargin > 0 ? std::min(settings.fisheyeEdgeMargin, 1.0) : 0;
}

class Lens {
 public:
  Lens(const IngestSettings& settings, int size)
      : half_(size / 2.0),
        focal_(half_ / (std::max(settings.fisheyeFieldOfView, kMinFieldOfView) / 2 * kDegree)),
        radius_(std::min(half_ * (1 - rimMargin(settings)), focal_ * kWidestAngle * kDegree)),
        hidesBelow_(settings.fisheyeMaskBelow > 0),
        lowest_(-settings.fisheyeMaskBelow * kDegree) {}

  double widest() const { return radius_ / focal_ / kDegree; }
  bool inCircle(int x, int y) const { return distance(x, y) <= half_; }
  bool shows(int x, int y) const { return distance(x, y) <= radius_ && (!hidesBelow_ || elevation(x, y) >= lowest_); }

 private:
  double dx(int x) const { return x + 0.5 - half_; }
  double distance(int x, int y) const { return std::hypot(dx(x), dx(y)); }
  // Elevation in radians of the direction that the pixel shows; y points down.
  double elevation(int x, int y) const {
    const double r = distance(x, y);
    return r > 0 ? -std::asin(std::clamp(std::sin(r / focal_) * dx(y) / r, -1.0, 1.0)) : 0;
  }

  const double half_, focal_, radius_;
  const bool hidesBelow_;
  const double lowest_;
};

}  // namespace

Image fisheyeMask(const IngestSettings& settings, int lensSize) {
  const Lens lens(settings, lensSize);
  Image mask{lensSize, lensSize, {}};
  mask.rgb.reserve(static_cast<size_t>(lensSize) * static_cast<size_t>(lensSize) * 3);
  for (int y = 0; y < lensSize; ++y) {
    for (int x = 0; x < lensSize; ++x) mask.rgb.insert(mask.rgb.end(), 3, lens.shows(x, y) ? 255 : 0);
  }
  return mask;
}

std::string describeFisheyeMask(const IngestSettings& settings, const Image& mask) {
  const Lens lens(settings, mask.width);
  size_t circle = 0, shown = 0;
  for (int y = 0; y < mask.height; ++y) {
    for (int x = 0; x < mask.width; ++x) {
      if (!lens.inCircle(x, y)) continue;
      ++circle;
      if (mask.rgb[3 * (static_cast<size_t>(y) * static_cast<size_t>(mask.width) + static_cast<size_t>(x))] != 0) {
        ++shown;
      }
    }
  }
  std::string text = formatText("Fisheye mask: hiding what is more than %.3g° off the axis", lens.widest());
  if (settings.fisheyeMaskBelow > 0) text += formatText(" or %.3g° below the horizon", settings.fisheyeMaskBelow);
  const double hidden = circle == 0 ? 0 : static_cast<double>(circle - shown) / static_cast<double>(circle);
  return text + formatText(", %.0f%% of each lens", 100 * hidden);
}

}  // namespace quor
