// A fresh set of splats from the sparse points of the camera solve.
#pragma once

#include <array>
#include <cstdint>
#include <span>

#include "base/split_mix64.h"
#include "gs/splats/gaussian_set.h"

namespace quor::gs {

struct SeedSettings {
  uint64_t count = 0;    // splats to create; 0 = one a point, 10000 when seeded at random
  float opacity = 0.1f;  // initial, activated
  float scaleMultiplier = 1.0f;
  bool randomWhenSparse = true;              // fewer than 100 points: at most 10000 random ones take their place
  std::array<double, 3> centre = {0, 0, 0};  // of those random points
  double extent = 1.0;                       // their largest offset along an axis, floored at 0.001
};

// `positions` (finite) and `colours` hold three values a point. Each splat is as large as its point's neighbours are
// distant. More splats than points scatter around points drawn at random; fewer are a random subset. Without any point
// the points are random, whatever the settings say. `random` advances.
GaussianSet seedFromPoints(std::span<const float> positions, std::span<const uint8_t> colours,
                           const SeedSettings& settings, SplitMix64& random);

}  // namespace quor::gs
