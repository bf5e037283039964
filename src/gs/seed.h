// A fresh set of splats from the sparse points of the camera solve.
#pragma once

#include <array>
#include <cstdint>
#include <span>

#include "base/split_mix64.h"
#include "gs/gaussian_set.h"

namespace quor::gs {

struct SeedSettings {
  uint64_t count = 0;    // splats to create (N)
  float opacity = 0.1f;  // initial, activated
  float scaleMultiplier = 1.0f;
  bool randomWhenSparse = true;              // fewer than 100 points: random splats within the scene's extent instead
  std::array<double, 3> centre = {0, 0, 0};  // of those random splats
  double extent = 1.0;                       // scene extent, floored at 0.001
};

// `positions` and `colours` hold three values a point. `random` advances.
GaussianSet seedFromPoints(std::span<const float> positions, std::span<const uint8_t> colours,
                           const SeedSettings& settings, SplitMix64& random);

}  // namespace quor::gs
