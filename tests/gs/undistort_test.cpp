#include "gs/data/undistort.h"

#include <gtest/gtest.h>

#include <cmath>

namespace quor::gs {
namespace {

Camera someCamera() {
  Camera camera;
  camera.width = 400, camera.height = 300;
  camera.fx = 310, camera.fy = 320;
  camera.cx = 207, camera.cy = 146;
  return camera;
}

// How far outside the photograph a point of the plane is seen, in pixels; 0 inside.
double overshoot(const Camera& camera, const Distortion& distortion, double x, double y) {
  const auto [xd, yd] = distorted(distortion, x, y);
  const double u = camera.fx * xd + camera.cx;
  const double v = camera.fy * yd + camera.cy;
  return std::max({0.0, -u, -v, u - camera.width, v - camera.height});
}

// The furthest that any point of a window's border lies outside the photograph.
double worst(const Camera& camera, const Distortion& distortion, const PlaneWindow& w) {
  double result = 0;
  for (int i = 0; i <= 500; ++i) {
    const double x = w.left + (w.right - w.left) * i / 500;
    const double y = w.top + (w.bottom - w.top) * i / 500;
    for (const double edge : {w.top, w.bottom}) result = std::max(result, overshoot(camera, distortion, x, edge));
    for (const double edge : {w.left, w.right}) result = std::max(result, overshoot(camera, distortion, edge, y));
  }
  return result;
}

TEST(Undistort, TheWindowIsTheLargestThatThePhotographShows) {
  const Camera camera = someCamera();
  const Distortion lenses[] = {{-0.2, 0.03, 0, 0},          {0.15, 0, 0, 0},    {-0.1, 0.08, 0.004, -0.003},
                               {0.1, -0.02, -0.005, 0.002}, {0, 0, 0.01, 0.01}, {1e-7, 0, 0, 0}};
  for (const Distortion& lens : lenses) {
    const PlaneWindow window = visibleWindow(camera, lens);
    EXPECT_LT(worst(camera, lens, window), 0.1) << lens.k1 << " " << lens.p1;
    // No side can move outwards by more than a pixel.
    for (double PlaneWindow::*side :
         {&PlaneWindow::left, &PlaneWindow::right, &PlaneWindow::top, &PlaneWindow::bottom}) {
      PlaneWindow larger = window;
      larger.*side += std::copysign(1.5 / camera.fx, window.*side);
      EXPECT_GT(worst(camera, lens, larger), 0.1) << lens.k1 << " " << lens.p1;
    }
  }
}

TEST(Undistort, StrongLensesStopBeforeTheFold) {
  const Camera camera = someCamera();
  // The polynomial folds over inside the photograph; never comes back; grows without bounds.
  for (const Distortion& lens :
       {Distortion{-1.5, 0, 0, 0}, {-0.6, -0.6, 0, 0}, {-3, 9, 0, 0}, {50, 0, 0, 0}, {1e12, 0, 0, 0}, {0, 0, 3, -3}}) {
    const PlaneWindow window = visibleWindow(camera, lens);
    EXPECT_LE(window.left, 0);
    EXPECT_GE(window.right, 0);
    EXPECT_LT(worst(camera, lens, window), 0.5) << lens.k1;
    // Within the window the picture is not mirrored: further out on the plane is further out in the photograph.
    double before = -1;
    for (int i = 0; i <= 100; ++i) {
      const auto [x, y] = distorted(lens, window.right * i / 100, window.bottom * i / 100);
      const double radius = std::hypot(x, y);
      EXPECT_GE(radius, before) << lens.k1 << " " << i;
      before = radius;
    }
    const Camera target = windowCamera(camera, window, 1);
    EXPECT_LE(target.width, 4 * camera.width);
    const Image image = undistort({400, 300, std::vector<uint8_t>(400 * 300 * 3, 77)}, camera, lens, target);
    EXPECT_EQ(image.rgb, std::vector<uint8_t>(image.rgb.size(), 77));
  }
}

TEST(Undistort, NoWindowWhereNothingCanBeSeen) {
  Camera camera = someCamera();
  EXPECT_TRUE(visibleWindow(camera, {-1e300, 1e300, 0, 0}).empty());
  camera.cx = 401;
  EXPECT_TRUE(visibleWindow(camera, {0.1, 0, 0, 0}).empty());
}

}  // namespace
}  // namespace quor::gs
