// How large and how often the viewport's pictures are drawn: smaller ones while the view moves, so that it follows the
// hand, and during training with pauses, so that looking on costs the training little.
#pragma once

namespace quor::ui {

class RenderPacer {
 public:
  // The share of each edge (1, or less while moving) that a picture of that many pixels is to be drawn at.
  double edgeScale(double pixels, bool moving) const;
  // Reports the cost of a picture.
  void drawn(double pixels, double milliseconds);
  // Milliseconds to leave the GPU to the training after the last picture.
  double pause(bool moving) const;

 private:
  double perPixel_ = 0;  // milliseconds, 0 = not known
  double last_ = 0;
};

}  // namespace quor::ui
