// The plain statement of what the kernels compute, in double precision and without tiles: the reference for forward
// images and, by central differences, for every gradient.
#pragma once

#include <algorithm>
#include <array>
#include <cmath>
#include <vector>

#include "gs/render/camera.h"
#include "gs/splats/gaussian_set.h"

namespace quor::test {

using Vec3 = std::array<double, 3>;

struct ReferenceImage {
  std::vector<double> rgb;    // height x width x 3, background composited
  std::vector<double> alpha;  // height x width
};

// Parameters of all splats, one array a group, as a GaussianSet holds them but in double precision.
struct ReferenceSplats {
  size_t count = 0;
  std::array<std::vector<double>, gs::kGroupCount> groups;

  explicit ReferenceSplats(const gs::GaussianSet& set) : count(set.count) {
    for (size_t g = 0; g < gs::kGroupCount; ++g) {
      const auto& values = set.group(static_cast<gs::Group>(g));
      groups[g].assign(values.begin(), values.end());
    }
  }
  double at(gs::Group g, size_t splat, size_t k) const { return groups[g][splat * gs::kGroupWidths[g] + k]; }
};

inline std::array<double, 16> referenceShBasis(const Vec3& d) {
  const auto [x, y, z] = d;
  const double xx = x * x, yy = y * y, zz = z * z;
  const double pi = std::acos(-1.0);
  const auto n = [&](double value) { return std::sqrt(value / pi); };
  return {0.5 * n(1.0),
          -0.5 * n(3.0) * y,
          0.5 * n(3.0) * z,
          -0.5 * n(3.0) * x,
          0.5 * n(15.0) * x * y,
          -0.5 * n(15.0) * y * z,
          0.25 * n(5.0) * (2 * zz - xx - yy),
          -0.5 * n(15.0) * x * z,
          0.25 * n(15.0) * (xx - yy),
          -0.25 * n(17.5) * y * (3 * xx - yy),
          0.5 * n(105.0) * x * y * z,
          -0.25 * n(10.5) * y * (4 * zz - xx - yy),
          0.25 * n(7.0) * z * (2 * zz - 3 * xx - 3 * yy),
          -0.25 * n(10.5) * x * (4 * zz - xx - yy),
          0.25 * n(105.0) * z * (xx - yy),
          -0.25 * n(17.5) * x * (xx - 3 * yy)};
}

struct ReferenceSplat {
  double depth = 0, opacity = 0;
  std::array<double, 2> mean = {};
  Vec3 conic = {}, colour = {};
  bool visible = false;
};

inline ReferenceSplat projectReference(const ReferenceSplats& splats, size_t i, const gs::Camera& camera, int degree,
                                       double nearPlane) {
  ReferenceSplat s;
  const auto& R = camera.rotation;
  Vec3 p{}, t{};
  for (size_t k = 0; k < 3; ++k) p[k] = splats.at(gs::kPositions, i, k);
  for (size_t r = 0; r < 3; ++r) {
    t[r] = camera.translation[r];
    for (size_t k = 0; k < 3; ++k) t[r] += R[3 * r + k] * p[k];
  }
  s.opacity = 1 / (1 + std::exp(-splats.at(gs::kOpacities, i, 0)));
  if (t[2] <= nearPlane || 255 * s.opacity <= 1) return s;

  std::array<double, 4> q{};
  double norm = 0;
  for (size_t k = 0; k < 4; ++k) q[k] = splats.at(gs::kRotations, i, k), norm += q[k] * q[k];
  for (double& v : q) v /= std::sqrt(norm);
  const auto [w, x, y, z] = q;
  const double rot[9] = {1 - 2 * (y * y + z * z), 2 * (x * y - w * z),     2 * (x * z + w * y),
                         2 * (x * y + w * z),     1 - 2 * (x * x + z * z), 2 * (y * z - w * x),
                         2 * (x * z - w * y),     2 * (y * z + w * x),     1 - 2 * (x * x + y * y)};
  double sigma[9] = {};
  for (size_t r = 0; r < 3; ++r) {
    for (size_t c = 0; c < 3; ++c) {
      for (size_t k = 0; k < 3; ++k) {
        sigma[3 * r + c] += rot[3 * r + k] * rot[3 * c + k] * std::exp(2 * splats.at(gs::kScales, i, k));
      }
    }
  }
  const double u = std::clamp(t[0] / t[2], -1.3 * camera.cx / camera.fx, 1.3 * (camera.width - camera.cx) / camera.fx);
  const double v = std::clamp(t[1] / t[2], -1.3 * camera.cy / camera.fy, 1.3 * (camera.height - camera.cy) / camera.fy);
  const double J[6] = {camera.fx / t[2], 0, -camera.fx * u / t[2], 0, camera.fy / t[2], -camera.fy * v / t[2]};
  double T[6] = {}, S[4] = {};
  for (size_t r = 0; r < 2; ++r) {
    for (size_t c = 0; c < 3; ++c) {
      for (size_t k = 0; k < 3; ++k) T[3 * r + c] += J[3 * r + k] * R[3 * k + c];
    }
  }
  for (size_t r = 0; r < 2; ++r) {
    for (size_t c = 0; c < 2; ++c) {
      for (size_t a = 0; a < 3; ++a) {
        for (size_t b = 0; b < 3; ++b) S[2 * r + c] += T[3 * r + a] * sigma[3 * a + b] * T[3 * c + b];
      }
    }
  }
  S[0] += 0.3;
  S[3] += 0.3;
  const double det = S[0] * S[3] - S[1] * S[1];
  s.conic = {S[3] / det, -S[1] / det, S[0] / det};
  s.mean = {camera.fx * t[0] / t[2] + camera.cx, camera.fy * t[1] / t[2] + camera.cy};
  s.depth = t[2];

  Vec3 direction{};
  const auto centre = camera.centre();
  double length = 0;
  for (size_t k = 0; k < 3; ++k) direction[k] = p[k] - centre[k], length += direction[k] * direction[k];
  for (double& d : direction) d /= std::sqrt(length);
  const auto basis = referenceShBasis(direction);
  for (size_t c = 0; c < 3; ++c) {
    double value = 0.5 + basis[0] * splats.at(gs::kShDc, i, c);
    for (size_t k = 1; k < static_cast<size_t>((degree + 1) * (degree + 1)); ++k) {
      value += basis[k] * splats.at(gs::kShRest, i, (k - 1) * 3 + c);
    }
    s.colour[c] = std::max(value, 0.0);
  }
  s.visible = true;
  return s;
}

inline ReferenceImage renderReference(const ReferenceSplats& splats, const gs::Camera& camera, int degree,
                                      const std::array<float, 3>& background, double nearPlane) {
  std::vector<ReferenceSplat> list;
  for (size_t i = 0; i < splats.count; ++i) {
    const ReferenceSplat s = projectReference(splats, i, camera, degree, nearPlane);
    if (s.visible) list.push_back(s);
  }
  std::stable_sort(list.begin(), list.end(), [](const auto& a, const auto& b) { return a.depth < b.depth; });

  ReferenceImage out;
  const size_t pixels = static_cast<size_t>(camera.width) * static_cast<size_t>(camera.height);
  out.rgb.assign(3 * pixels, 0);
  out.alpha.assign(pixels, 0);
  for (size_t p = 0; p < pixels; ++p) {
    const double px = static_cast<double>(p % static_cast<size_t>(camera.width)) + 0.5;
    const double py = static_cast<double>(p / static_cast<size_t>(camera.width)) + 0.5;
    double T = 1;
    for (const ReferenceSplat& s : list) {
      const double dx = px - s.mean[0], dy = py - s.mean[1];
      const double q = s.conic[0] * dx * dx + 2 * s.conic[1] * dx * dy + s.conic[2] * dy * dy;
      const double alpha = std::min(0.999, s.opacity * std::exp(-0.5 * q));
      if (q < 0 || alpha < 1.0 / 255) continue;
      for (size_t c = 0; c < 3; ++c) out.rgb[3 * p + c] += s.colour[c] * alpha * T;
      out.alpha[p] += alpha * T;
      T *= 1 - alpha;
      if (T < 1e-4) break;
    }
    for (size_t c = 0; c < 3; ++c) {
      out.rgb[3 * p + c] += std::max(1 - out.alpha[p], 0.0) * static_cast<double>(background[c]);
    }
  }
  return out;
}

// Mean L1, mean squared error of the clamped image and mean SSIM against a target of values 0..1.
struct ReferenceScores {
  double l1 = 0, mse = 0, ssim = 0;
};

inline ReferenceScores scoreReference(const std::vector<double>& image, const std::vector<double>& target, int width,
                                      int height) {
  std::array<double, 11> window{};
  double total = 0;
  for (int k = -5; k <= 5; ++k) total += window[static_cast<size_t>(k + 5)] = std::exp(-k * k / (2 * 1.5 * 1.5));
  for (double& v : window) v /= total;

  ReferenceScores scores;
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      for (int c = 0; c < 3; ++c) {
        const auto at = [&](int px, int py) { return static_cast<size_t>((py * width + px) * 3 + c); };
        double mx = 0, my = 0, xx = 0, yy = 0, xy = 0;
        for (int j = std::max(y - 5, 0); j <= std::min(y + 5, height - 1); ++j) {
          for (int i = std::max(x - 5, 0); i <= std::min(x + 5, width - 1); ++i) {
            const double w = window[static_cast<size_t>(i - x + 5)] * window[static_cast<size_t>(j - y + 5)];
            const double a = image[at(i, j)], b = target[at(i, j)];
            mx += w * a, my += w * b, xx += w * a * a, yy += w * b * b, xy += w * a * b;
          }
        }
        const double A = 2 * mx * my + 1e-4, B = 2 * (xy - mx * my) + 9e-4;
        const double C = mx * mx + my * my + 1e-4, D = xx - mx * mx + yy - my * my + 9e-4;
        scores.ssim += A * B / (C * D);
        const double a = image[at(x, y)], b = target[at(x, y)];
        scores.l1 += std::abs(a - b);
        scores.mse += (std::clamp(a, 0.0, 1.0) - b) * (std::clamp(a, 0.0, 1.0) - b);
      }
    }
  }
  const double n = 3.0 * width * height;
  return {scores.l1 / n, scores.mse / n, scores.ssim / n};
}

}  // namespace quor::test
