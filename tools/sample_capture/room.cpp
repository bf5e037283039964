#include "sample_capture/room.h"

#include "sample_capture/furnisher.h"
#include "sample_capture/hard_rooms.h"

namespace quor::sample {
namespace {

class RoomFurnisher : public Furnisher {
 public:
  using Furnisher::Furnisher;

  void walls() {
    room().walls = {material(Pattern::Bricks, kBrick, kMortar), material(Pattern::Wallpaper, kMist, kSea),
                    material(Pattern::Stones, kSlate, kAsh),    material(Pattern::Wallpaper, kSand, kRust),
                    material(Pattern::Tiles, kClay, kSand),     material(Pattern::Planks, kChalk, kOak)};
  }

  void table() {
    const double x = wobble(0.08), y = wobble(0.08), yaw = 0.35 + wobble(0.3);
    const double c = std::cos(yaw), s = std::sin(yaw);
    const auto at = [&](double u, double v, double z) { return Vec3{x + c * u - s * v, y + s * u + c * v, z}; };
    box(at(0, 0, 0.6), {0.62, 0.42, 0.035}, yaw, Pattern::Planks, kOak, kDarkOak);
    for (const double u : {-0.54, 0.54}) {
      for (const double v : {-0.34, 0.34})
        box(at(u, v, 0.29), {0.04, 0.04, 0.275}, yaw, Pattern::Planks, kOak, kDarkOak);
    }
    sphere(at(-0.32, 0.12, 0.835), 0.2, Pattern::Marble, kChalk, kNavy);
    sphere(at(0.02, -0.22, 0.765), 0.13, Pattern::Spots, kGold, kWine);
    box(at(0.33, 0.1, 0.675), {0.19, 0.14, 0.04}, yaw + 0.2, Pattern::Mosaic, kWine, kGold);
    box(at(0.33, 0.1, 0.75), {0.17, 0.12, 0.035}, yaw - 0.25, Pattern::Mosaic, kTeal, kChalk);
    box(at(0.34, 0.09, 0.86), {0.075, 0.075, 0.075}, yaw + 0.7, Pattern::Poster, kNavy, kGold);
  }

  void middle() {
    group({0, 0, 0.6}, 1.25);
    table();
    group({0, 0, 0.1}, 2.2);
    box({0, 0, 0.008}, {1.35, 1.05, 0.008}, 0.3 + wobble(0.3), Pattern::Rug, kWine, kRust);
    group({0.8, 0, 0.4}, 1.35);
    box({1.0, -0.55, 0.26}, {0.26, 0.26, 0.26}, 0.4 + wobble(0.4), Pattern::Crate, kOak, kDarkOak);
    box({1.02, -0.55, 0.66}, {0.14, 0.16, 0.14}, -0.2 + wobble(0.4), Pattern::Crate, kGold, kWine);
    sphere({0.55, 0.95, 0.24}, 0.24, Pattern::Marble, kWine, kChalk);
    sphere({0.98, 0.62, 0.15}, 0.15, Pattern::Mosaic, kGold, kNavy);
    group({-0.7, 0, 0.6}, 1.5);
    box({-1.0, 0.6, 0.42}, {0.17, 0.17, 0.42}, 0.6 + wobble(0.4), Pattern::Mosaic, kSlate, kMoss);
    sphere({-1.0, 0.6, 1.03}, 0.19, Pattern::Mosaic, kTeal, kGold);
    sphere({-0.75, -0.8, 0.32}, 0.32, Pattern::Spots, kTeal, kChalk);
    box({-0.1, -1.0, 0.14}, {0.2, 0.14, 0.14}, -0.5 + wobble(0.4), Pattern::Poster, kMoss, kCream);
  }

  void alongTheWalls() {
    group({-3.0, -0.1, 1.0}, 2.3);
    box({-2.98, 0.9, 0.95}, {0.22, 0.9, 0.95}, 0, Pattern::Books, kOak, kDarkOak);
    box({-2.95, -1.5, 0.4}, {0.25, 0.55, 0.4}, 0, Pattern::Crate, kDarkOak, kGold);
    sphere({-2.9, -1.6, 1.0}, 0.2, Pattern::Marble, kTeal, kCream);
    box({-3.19, -0.75, 1.75}, {0.02, 0.5, 0.38}, 0, Pattern::Poster, kNavy, kGold);
    group({3.0, 0.1, 1.0}, 2.3);
    box({3.0, -0.9, 0.85}, {0.2, 0.8, 0.85}, 0, Pattern::Books, kChalk, kSlate);
    box({2.9, 1.6, 0.3}, {0.26, 0.26, 0.3}, 0.2, Pattern::Mosaic, kMoss, kGold);
    sphere({2.9, 1.6, 0.83}, 0.23, Pattern::Spots, kChalk, kNavy);
    box({3.19, 0.75, 1.7}, {0.02, 0.6, 0.42}, 0, Pattern::Poster, kCream, kWine);
    group({0, 2.75, 1.1}, 2.3);
    box({0.9, 2.68, 0.42}, {0.9, 0.22, 0.42}, 0, Pattern::Crate, kOak, kDarkOak);
    box({1.3, 2.65, 0.95}, {0.14, 0.14, 0.11}, 0.5, Pattern::Spots, kWine, kGold);
    sphere({0.5, 2.65, 1.0}, 0.16, Pattern::Mosaic, kNavy, kChalk);
    box({-1.5, 2.89, 1.6}, {0.55, 0.02, 0.4}, 0, Pattern::Poster, kTeal, kCream);
    box({0.9, 2.89, 1.9}, {0.4, 0.02, 0.5}, 0, Pattern::Poster, kMoss, kNavy);
    group({-0.1, -2.75, 1.0}, 2.4);
    box({-0.6, -2.7, 0.5}, {0.5, 0.2, 0.5}, 0, Pattern::Books, kDarkOak, kCream);
    box({1.6, -2.62, 0.35}, {0.3, 0.28, 0.35}, 0.1, Pattern::Crate, kTeal, kNavy);
    box({0.7, -2.89, 1.75}, {0.6, 0.02, 0.42}, 0, Pattern::Poster, kWine, kChalk);
    box({-1.9, -2.89, 1.6}, {0.4, 0.02, 0.5}, 0, Pattern::Poster, kGold, kTeal);
  }
};

Room furnishRoom(uint64_t seed) {
  RoomFurnisher furnisher(seed);
  furnisher.walls();
  furnisher.middle();
  furnisher.alongTheWalls();
  return furnisher.room();
}

Room furnishTurntable(uint64_t seed, bool plainWalls) {
  RoomFurnisher furnisher(seed);
  furnisher.walls();
  if (plainWalls) furnisher.plainWalls(kAsh);
  furnisher.middle();
  furnisher.room().staysWithCamera = true;
  furnisher.room().lamp = {0, 0, 2.6};  // above the axis, so that shadows keep their places on the things
  return furnisher.room();
}

}  // namespace

Room furnish(SceneKind kind, uint64_t seed) {
  switch (kind) {
    case SceneKind::Symmetric:
      return furnishSymmetric(seed);
    case SceneKind::Corridor:
      return furnishCorridor(seed);
    case SceneKind::Turntable:
      return furnishTurntable(seed, true);
    case SceneKind::TexturedTurntable:
      return furnishTurntable(seed, false);
    default:
      return furnishRoom(seed);
  }
}

}  // namespace quor::sample
