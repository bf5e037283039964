// What the benches share: a scene with the depth complexity of a real one, and the table they print.
#pragma once

#include <cmath>
#include <cstdint>

#include "base/split_mix64.h"
#include "gs/camera.h"
#include "gs/gaussian_set.h"

namespace quor::bench {

// A camera that looks into a box of splats from outside.
inline gs::Camera benchCamera(int width, int height) {
  gs::Camera camera;
  camera.width = width;
  camera.height = height;
  camera.fx = camera.fy = 0.8 * std::max(width, height);
  camera.cx = 0.5 * width;
  camera.cy = 0.5 * height;
  camera.translation = {0, 0, 3.5};
  return camera;
}

// `count` splats in a box around the origin, log-normal in size, sized so that the camera lists about
// `instancesPerSplat` tiles for each splat that it sees at that image size.
inline gs::GaussianSet benchScene(uint64_t count, int width, double instancesPerSplat, uint64_t seed = 1) {
  SplitMix64 random(seed);
  gs::GaussianSet set;
  set.resize(count);
  // A splat of standard deviation s pixels reaches about 2.5 s; it touches about (1 + 5 s / 16)^2 tiles.
  const double pixels = 16.0 / 5.0 * (std::sqrt(instancesPerSplat) - 1.0);
  const double size = pixels * 3.5 / (0.8 * width);
  for (size_t i = 0; i < count; ++i) {
    const double box[3] = {2.0, 1.2, 1.5};
    for (size_t k = 0; k < 3; ++k) {
      set.positions[3 * i + k] = static_cast<float>(box[k] * (2 * random.uniform() - 1));
      set.scales[3 * i + k] = static_cast<float>(std::log(size) + 0.5 * random.normal() - 0.2);
      set.shDc[3 * i + k] = static_cast<float>(random.normal());
    }
    for (size_t k = 0; k < 4; ++k) set.rotations[4 * i + k] = static_cast<float>(random.normal());
    set.opacities[i] = static_cast<float>(1.5 * random.normal());
    for (size_t k = 0; k < 45; ++k) set.shRest[45 * i + k] = static_cast<float>(0.05 * random.normal());
  }
  return set;
}

}  // namespace quor::bench
