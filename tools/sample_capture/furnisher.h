// Puts things into a room, each with a pattern of its own, and holds the colours that all rooms are painted with.
#pragma once

#include "base/split_mix64.h"
#include "sample_capture/room.h"

namespace quor::sample {

inline constexpr Vec3 kOak{0.72, 0.52, 0.32}, kDarkOak{0.46, 0.31, 0.19};
inline constexpr Vec3 kCream{0.80, 0.74, 0.63}, kBrick{0.68, 0.36, 0.27}, kMortar{0.66, 0.53, 0.46};
inline constexpr Vec3 kTeal{0.26, 0.50, 0.52}, kNavy{0.25, 0.32, 0.50}, kWine{0.56, 0.25, 0.26};
inline constexpr Vec3 kMoss{0.38, 0.47, 0.26}, kGold{0.80, 0.64, 0.34}, kSlate{0.46, 0.49, 0.51},
    kChalk{0.80, 0.79, 0.76};
inline constexpr Vec3 kSand{0.78, 0.68, 0.50}, kClay{0.56, 0.42, 0.32}, kRust{0.68, 0.42, 0.30}, kAsh{0.60, 0.61, 0.60};
inline constexpr Vec3 kMist{0.70, 0.76, 0.72}, kSea{0.36, 0.58, 0.58};

class Furnisher {
 public:
  explicit Furnisher(uint64_t seed) : random_(SplitMix64::fromSeed(seed)) {}

  Material material(Pattern pattern, Vec3 base, Vec3 accent) {
    return {pattern, static_cast<uint32_t>(random_.next()), base, accent};
  }
  void box(Vec3 centre, Vec3 half, double yaw, const Material& material) {
    room_.groups.back().boxes.emplace_back(centre, half, yaw, material);
  }
  void box(Vec3 centre, Vec3 half, double yaw, Pattern pattern, Vec3 base, Vec3 accent) {
    box(centre, half, yaw, material(pattern, base, accent));
  }
  void sphere(Vec3 centre, double radius, Pattern pattern, Vec3 base, Vec3 accent) {
    room_.groups.back().spheres.emplace_back(centre, radius, material(pattern, base, accent));
  }
  // What follows stands within the ball.
  void group(Vec3 centre, double radius) { room_.groups.push_back({{centre, radius}, {}, {}}); }
  // A little to either side, so that each seed has a room of its own.
  double wobble(double reach) { return reach * (2 * random_.uniform() - 1); }
  void plainWalls(Vec3 colour) { room_.walls.fill({Pattern::Plain, 0, colour, colour}); }
  Room& room() { return room_; }

 private:
  SplitMix64 random_;
  Room room_;
};

}  // namespace quor::sample
