// A fresh set of splats from the sparse points of the camera solve.
#pragma once

#include <array>
#include <cstdint>
#include <span>

#include "base/split_mix64.h"
#include "gs/splats/gaussian_set.h"

namespace quor::gs {

// A solve with fewer points says nothing of the scene: random points take their place.
inline constexpr uint64_t kMinSeedPoints = 100;
inline constexpr uint64_t kRandomSeeds = 10000;

// The splats that a solve of so many points starts with, unless more are asked for.
constexpr uint64_t automaticSeeds(uint64_t points) {
  return points < kMinSeedPoints ? kRandomSeeds : points;
}

struct SeedSettings {
  uint64_t count = 0;    // splats to create; 0 = one a point, kRandomSeeds when seeded at random
  float opacity = 0.1f;  // initial, activated
  float scaleMultiplier = 1.0f;
  bool randomWhenSparse = true;              // at most kRandomSeeds random points replace fewer than kMinSeedPoints
  std::array<double, 3> centre = {0, 0, 0};  // of those random points
  double extent = 1.0;                       // their largest offset along an axis, at least 0.001
};

// `positions` (finite) and `colours` hold three values a point. A splat's size is the distance of its point's
// neighbours. More splats than points scatter around points drawn at random; fewer use a random subset of the points.
// Without any point the points are random, whatever the settings say. Advances `random`.
GaussianSet seedFromPoints(std::span<const float> positions, std::span<const uint8_t> colours,
                           const SeedSettings& settings, SplitMix64& random);

}  // namespace quor::gs
