// The kinds of picture that a camera in its place can take. Places in a picture are in pixels; the centre of the first
// pixel is (0.5, 0.5).
#pragma once

#include <numbers>

#include "sample_capture/pose.h"
#include "sample_capture/shapes.h"

namespace quor::sample {

struct PinholeView : Pose {
  int width = 0, height = 0;
  double fx = 0, fy = 0, cx = 0, cy = 0;  // pixels

  Ray rayThrough(double x, double y) const;
  double pixelsPerRadian() const { return fx; }  // in the middle
  bool shows(double, double) const { return true; }
};

// The whole sphere. The middle column looks along +z, columns to its right look to the right of it, the top row looks
// straight up: x = width * (1/2 + yaw / 360), y = height * (1/2 - pitch / 180) for angles in degrees.
struct EquirectangularView : Pose {
  int width = 0, height = 0;

  Ray rayThrough(double x, double y) const;
  double pixelsPerRadian() const { return width / (2 * std::numbers::pi); }
  bool shows(double, double) const { return true; }
};

// An equidistant lens, r = f * theta, whose field of view is reached at half the side of its square picture; outside
// that circle the picture is black.
struct FisheyeView : Pose {
  int width = 0, height = 0;  // equal
  double fieldOfView = 190;   // degrees

  Ray rayThrough(double x, double y) const;
  double pixelsPerRadian() const { return width / (fieldOfView * std::numbers::pi / 180); }
  bool shows(double x, double y) const { return std::hypot(x - 0.5 * width, y - 0.5 * height) < 0.5 * width; }
};

}  // namespace quor::sample
