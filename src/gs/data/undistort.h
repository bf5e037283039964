// Frees photographs of lens distortion: the renderer knows only pinhole cameras. The lens model is COLMAP's OPENCV one
// (Brown 1966, radial k1, k2 and tangential p1, p2), of which SIMPLE_RADIAL and RADIAL are special cases; coordinates
// "on the plane" are those of the ideal pinhole image at depth 1.
#pragma once

#include <array>

#include "base/image/image.h"
#include "gs/render/camera.h"

namespace quor::gs {

struct Distortion {
  double k1 = 0, k2 = 0, p1 = 0, p2 = 0;
  bool none() const { return k1 == 0 && k2 == 0 && p1 == 0 && p2 == 0; }
};

// Where a point of the plane is seen: x_d = x (1 + k1 r^2 + k2 r^4) + 2 p1 x y + p2 (r^2 + 2 x^2), y_d likewise.
std::array<double, 2> distorted(const Distortion& distortion, double x, double y);

// A rectangle on the plane, around the principal axis.
struct PlaneWindow {
  double left = 0, top = 0, right = 0, bottom = 0;
  bool empty() const { return !(left < right && top < bottom); }
};

// The largest window all of whose points the photograph shows. It ends where the lens polynomial folds over, at 75
// degrees from the axis and at twice the photograph's own half diagonal, whichever is nearest. Empty when the principal
// point lies outside the photograph, or the polynomial is too steep to see anything around it.
PlaneWindow visibleWindow(const Camera& camera, const Distortion& distortion);

// The pinhole camera of `camera`'s pose and `scale` times its focal lengths whose whole pixels, at least one, fill
// `window`.
Camera windowCamera(const Camera& camera, const PlaneWindow& window, double scale);

// What `target` sees of a photograph of `source`'s size, bilinear; both have the same pose.
Image undistort(const Image& photograph, const Camera& source, const Distortion& distortion, const Camera& target);

}  // namespace quor::gs
