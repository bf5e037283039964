#include "gs/data/undistort.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace quor::gs {
namespace {

constexpr int kRays = 4096;
constexpr int kSteps = 64;  // along a ray, before the border is bisected
constexpr int kBisections = 32;
constexpr double kMinStretch = 0.05;  // of areas; 0 is where the polynomial folds over

// The determinant of the distortion's derivative.
double stretch(const Distortion& d, double x, double y) {
  const double r2 = x * x + y * y;
  const double radial = 1 + d.k1 * r2 + d.k2 * r2 * r2;
  const double slope = 2 * (d.k1 + 2 * d.k2 * r2);  // of `radial`, by x: slope * x
  const double xx = radial + slope * x * x + 2 * d.p1 * y + 6 * d.p2 * x;
  const double yy = radial + slope * y * y + 2 * d.p2 * x + 6 * d.p1 * y;
  const double xy = slope * x * y + 2 * d.p1 * x + 2 * d.p2 * y;
  return xx * yy - xy * xy;
}

// Decides whether a point of the plane can be used.
struct Lens {
  const Camera& camera;
  const Distortion& distortion;

  bool shows(double x, double y) const {
    if (!(stretch(distortion, x, y) > kMinStretch)) return false;
    const auto [u, v] = pixel(x, y);
    return u >= 0 && v >= 0 && u <= camera.width && v <= camera.height;
  }

  std::array<double, 2> pixel(double x, double y) const {
    const auto [xd, yd] = distorted(distortion, x, y);
    return {camera.fx * xd + camera.cx, camera.fy * yd + camera.cy};
  }
};

// How far along a direction from the axis the photograph reaches.
double reach(const Lens& lens, double dx, double dy, double limit) {
  double inside = 0;
  double outside = limit;
  for (int step = 1; step <= kSteps; ++step) {
    const double at = limit * step / kSteps;
    if (!lens.shows(at * dx, at * dy)) {
      outside = at;
      break;
    }
    inside = at;
  }
  for (int i = 0; i < kBisections && inside < outside; ++i) {
    const double middle = 0.5 * (inside + outside);
    (lens.shows(middle * dx, middle * dy) ? inside : outside) = middle;
  }
  return inside;
}

// How far it is from the principal point towards the photograph's edge on that side, 0 to 1.
double sideFraction(double offset, double before, double behind) {
  return offset < 0 ? -offset / before : offset / behind;
}

}  // namespace

std::array<double, 2> distorted(const Distortion& d, double x, double y) {
  const double r2 = x * x + y * y;
  const double radial = 1 + d.k1 * r2 + d.k2 * r2 * r2;
  return {x * radial + 2 * d.p1 * x * y + d.p2 * (r2 + 2 * x * x),
          y * radial + 2 * d.p2 * x * y + d.p1 * (r2 + 2 * y * y)};
}

PlaneWindow visibleWindow(const Camera& camera, const Distortion& distortion) {
  const double rightSpace = camera.width - camera.cx;
  const double bottomSpace = camera.height - camera.cy;
  if (!(camera.cx > 0 && camera.cy > 0 && rightSpace > 0 && bottomSpace > 0)) return {};

  const Lens lens{camera, distortion};
  const double halfDiagonal =
      std::hypot(std::max(camera.cx, rightSpace) / camera.fx, std::max(camera.cy, bottomSpace) / camera.fy);
  const double limit = std::min(2 * halfDiagonal, std::tan(75 * std::numbers::pi / 180));
  PlaneWindow window{-limit, -limit, limit, limit};
  // The visible region's border, point by point: each moves the side of the photograph that it lies at.
  for (int ray = 0; ray < kRays; ++ray) {
    const double angle = 2 * std::numbers::pi * ray / kRays;
    const double length = reach(lens, std::cos(angle), std::sin(angle), limit);
    if (length == 0) return {};
    const double x = length * std::cos(angle);
    const double y = length * std::sin(angle);
    const auto [u, v] = lens.pixel(x, y);
    const double across = sideFraction(u - camera.cx, camera.cx, rightSpace);
    const double down = sideFraction(v - camera.cy, camera.cy, bottomSpace);
    if (across >= down) {
      (x < 0 ? window.left : window.right) = x < 0 ? std::max(window.left, x) : std::min(window.right, x);
    } else {
      (y < 0 ? window.top : window.bottom) = y < 0 ? std::max(window.top, y) : std::min(window.bottom, y);
    }
  }
  return window;
}

Camera windowCamera(const Camera& camera, const PlaneWindow& window, double scale) {
  // The margin keeps a window that is a whole number of pixels wide from losing one to rounding.
  const auto whole = [](double length) { return std::max(1, static_cast<int>(std::floor(length + 1e-6))); };
  Camera target = camera;
  target.fx *= scale;
  target.fy *= scale;
  target.width = whole(target.fx * (window.right - window.left));
  target.height = whole(target.fy * (window.bottom - window.top));
  // What is left of a pixel goes to both sides alike.
  target.cx = 0.5 * (target.width - target.fx * (window.left + window.right));
  target.cy = 0.5 * (target.height - target.fy * (window.top + window.bottom));
  return target;
}

Image undistort(const Image& photograph, const Camera& source, const Distortion& distortion, const Camera& target) {
  Image image{target.width, target.height, {}};
  image.rgb.resize(static_cast<size_t>(target.width) * static_cast<size_t>(target.height) * 3);
  const Lens lens{source, distortion};
  const auto stride = static_cast<size_t>(photograph.width) * 3;
  uint8_t* out = image.rgb.data();
  for (int j = 0; j < target.height; ++j) {
    for (int i = 0; i < target.width; ++i) {
      const auto [u, v] = lens.pixel((i + 0.5 - target.cx) / target.fx, (j + 0.5 - target.cy) / target.fy);
      const double x = std::clamp(u - 0.5, 0.0, photograph.width - 1.0);
      const double y = std::clamp(v - 0.5, 0.0, photograph.height - 1.0);
      const auto x0 = static_cast<size_t>(x);
      const auto y0 = static_cast<size_t>(y);
      const auto fx = static_cast<float>(x - static_cast<double>(x0));
      const auto fy = static_cast<float>(y - static_cast<double>(y0));
      const size_t right = x0 + 1 < static_cast<size_t>(photograph.width) ? 3 : 0;
      const size_t below = y0 + 1 < static_cast<size_t>(photograph.height) ? stride : 0;
      const uint8_t* p = &photograph.rgb[y0 * stride + x0 * 3];
      for (size_t c = 0; c < 3; ++c, ++p) {
        const float top = p[0] + fx * static_cast<float>(p[right] - p[0]);
        const float bottom = p[below] + fx * static_cast<float>(p[below + right] - p[below]);
        *out++ = static_cast<uint8_t>(top + fy * (bottom - top) + 0.5f);
      }
    }
  }
  return image;
}

}  // namespace quor::gs
