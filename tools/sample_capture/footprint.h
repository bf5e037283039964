// From surfaces to pixels: what a pixel covers and what byte values its light becomes.
#pragma once

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>

#include "sample_capture/scene.h"

namespace quor::sample {

// Metres of a pixel on the surface that the ray has met; grazing views stretch it.
inline double footprintOf(double pixelsPerRadian, const Ray& ray, const Scene::Hit& hit) {
  const double facing = std::max(0.05, -dot(ray.direction, hit.normal));
  return hit.distance / (pixelsPerRadian * std::sqrt(facing));
}

inline std::array<uint8_t, 3> toBytes(Vec3 colour) {
  const auto byte = [](double value) { return static_cast<uint8_t>(std::lround(255 * std::clamp(value, 0.0, 1.0))); };
  return {byte(colour.x), byte(colour.y), byte(colour.z)};
}

}  // namespace quor::sample
