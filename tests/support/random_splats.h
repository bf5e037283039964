// Small random scenes for the trainer's tests.
#pragma once

#include "base/split_mix64.h"
#include "gs/render/camera.h"
#include "gs/splats/gaussian_set.h"

namespace quor::test {

// A camera at the origin that looks along +z, slightly turned, with its principal point off the centre.
inline gs::Camera testCamera(int width, int height) {
  gs::Camera camera;
  camera.width = width;
  camera.height = height;
  camera.fx = 0.9 * width;
  camera.fy = 0.95 * width;
  camera.cx = 0.47 * width;
  camera.cy = 0.55 * height;
  const double a = 0.1, c = std::cos(a), s = std::sin(a);
  camera.rotation = {c, 0, s, 0, 1, 0, -s, 0, c};
  camera.translation = {0.05, -0.1, 0.2};
  return camera;
}

// Splats in front of testCamera, some of them outside the image, with all SH coefficients in use.
inline gs::GaussianSet randomScene(size_t count, uint64_t seed) {
  SplitMix64 random(seed);
  const auto uniform = [&](double low, double high) {
    return static_cast<float>(low + (high - low) * random.uniform());
  };
  gs::GaussianSet set;
  set.resize(count);
  for (size_t i = 0; i < count; ++i) {
    const float z = uniform(2.0, 5.0);
    set.positions[3 * i] = z * uniform(-0.6, 0.6);
    set.positions[3 * i + 1] = z * uniform(-0.45, 0.45);
    set.positions[3 * i + 2] = z;
    for (size_t k = 0; k < 3; ++k) set.scales[3 * i + k] = uniform(-3.2, -1.2);
    for (size_t k = 0; k < 4; ++k) set.rotations[4 * i + k] = uniform(-1.0, 1.0);
    set.opacities[i] = uniform(-2.0, 3.0);
    if (i % 5 == 4) {  // large and beside the image: the projection's clamp is active
      set.positions[3 * i] = z * (i % 2 == 0 ? 0.8f : -0.8f);
      for (size_t k = 0; k < 3; ++k) set.scales[3 * i + k] += 1.0f;
    }
    for (size_t k = 0; k < 3; ++k) set.shDc[3 * i + k] = uniform(-2.2, 2.0);  // some channels clamp at 0
    for (size_t k = 0; k < 45; ++k) set.shRest[45 * i + k] = uniform(-0.15, 0.15);
  }
  return set;
}

}  // namespace quor::test
