#include "ui/models/view/render_pacer.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace quor::ui {
namespace {

constexpr double kMovingBudget = 30;  // milliseconds a picture
constexpr std::array<double, 6> kEdgeScales = {1, 0.75, 0.5, 0.375, 0.25, 0.1875};
// How many times as long as it takes to draw a picture the training has the GPU to itself.
constexpr double kPausesStill = 9, kPausesMoving = 1;
constexpr double kLongestPause = 3000;

}  // namespace

double RenderPacer::edgeScale(double pixels, bool moving) const {
  if (!moving) return 1;
  for (const double scale : kEdgeScales) {
    if (perPixel_ * pixels * scale * scale <= kMovingBudget) return scale;
  }
  return kEdgeScales.back();
}

void RenderPacer::drawn(double pixels, double milliseconds) {
  last_ = milliseconds;
  if (pixels > 0) perPixel_ = milliseconds / pixels;
}

double RenderPacer::pause(bool moving) const {
  return std::min((moving ? kPausesMoving : kPausesStill) * last_, kLongestPause);
}

}  // namespace quor::ui
