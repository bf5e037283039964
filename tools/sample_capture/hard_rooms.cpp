#include "sample_capture/hard_rooms.h"

#include <numbers>

#include "sample_capture/furnisher.h"

namespace quor::sample {
namespace {

constexpr int kDoors = 6;

class SymmetricFurnisher : public Furnisher {
 public:
  using Furnisher::Furnisher;

  // The box and its twin on the other side of the vertical axis.
  void pair(Vec3 centre, Vec3 half, double yaw, Pattern pattern, Vec3 base, Vec3 accent) {
    const Material shared = material(pattern, base, accent);
    box(centre, half, yaw, shared);
    box({-centre.x, -centre.y, centre.z}, half, yaw + std::numbers::pi, shared);
  }

  void object() {
    group({0, 0, 0.9}, 1.6);
    pair({0.4, 0, 0.08}, {0.4, 0.62, 0.08}, 0, Pattern::Crate, kOak, kDarkOak);
    pair({0.33, 0, 0.76}, {0.33, 0.42, 0.6}, 0, Pattern::Mosaic, kTeal, kGold);
    pair({0.2, 0.1, 1.6}, {0.2, 0.28, 0.24}, 0, Pattern::Poster, kWine, kChalk);
    pair({0.3 + wobble(0.1), 0.75, 0.5}, {0.2, 0.18, 0.5}, 0.4 + wobble(0.3), Pattern::Books, kOak, kDarkOak);
    pair({0.86, 0.3 + wobble(0.1), 0.3}, {0.18, 0.22, 0.3}, -0.3 + wobble(0.3), Pattern::Mosaic, kWine, kSand);
    pair({0.35, -0.64, 0.2}, {0.22, 0.16, 0.2}, 0.2 + wobble(0.3), Pattern::Poster, kMoss, kGold);
  }

  void wall() {
    plainWalls(kAsh);
    room().lamp = {0, 0, 2.6};
    group({3.2, 0, 1.4}, 1.6);
    box({3.19, wobble(0.8), 1.4}, {0.02, 0.55, 0.35}, 0, Pattern::Poster, kCream, kNavy);
  }
};

class CorridorFurnisher : public Furnisher {
 public:
  explicit CorridorFurnisher(uint64_t seed) : Furnisher(seed) {
    room().half = {0.5 * kDoors * kDoorPitch, 1.4, 1.25};
    room().lampLight = 0;
    plainWalls(kChalk);
  }

  void doors() {
    const Material floor = material(Pattern::Tiles, kClay, kSand), panel = material(Pattern::Wallpaper, kSand, kRust);
    const Material door = material(Pattern::Crate, kOak, kDarkOak), board = material(Pattern::Poster, kTeal, kCream);
    const Material chest = material(Pattern::Mosaic, kMoss, kGold), pillar = material(Pattern::Bricks, kBrick, kMortar);
    const Material stool = material(Pattern::Books, kOak, kDarkOak);
    const double y = room().half.y;
    for (int i = 0; i < kDoors; ++i) {
      const double x = middleOf(i);
      group({x, 0, 1.25}, 2.45);
      box({x, 0, 0.005}, {0.5 * kDoorPitch, y, 0.005}, 0, floor);
      for (const double side : {-1.0, 1.0}) {
        box({x, side * y, 1.25}, {0.5 * kDoorPitch, 0.02, 1.25}, 0, panel);
        box({x - 0.7, side * y, 1.05}, {0.45, 0.06, 1.05}, 0, door);
        box({x + 0.7, side * y, 1.5}, {0.45, 0.05, 0.3}, 0, board);
        box({x + 0.8, side * (y - 0.2), 0.35}, {0.3, 0.2, 0.35}, 0, chest);
        box({x - 1.3, side * (y - 0.15), 1.25}, {0.12, 0.15, 1.25}, 0, pillar);
        box({x + 0.1, side * (y - 0.4), 0.45}, {0.18, 0.18, 0.45}, 0.4, stool);
      }
    }
  }

  void signs() {
    for (const int i : {2, 4}) {
      group({middleOf(i), 0, 1.6}, 1.5);
      for (const double side : {-1.35, 1.35}) {
        box({middleOf(i) + wobble(0.1), side, 1.5 + wobble(0.1)}, {0.12, 0.02, 0.09}, 0, Pattern::Poster, kNavy, kGold);
      }
    }
  }

 private:
  double middleOf(int door) { return (door + 0.5) * kDoorPitch - room().half.x; }
};

}  // namespace

Room furnishSymmetric(uint64_t seed) {
  SymmetricFurnisher furnisher(seed);
  furnisher.object();
  furnisher.wall();
  return furnisher.room();
}

Room furnishCorridor(uint64_t seed) {
  CorridorFurnisher furnisher(seed);
  furnisher.doors();
  furnisher.signs();
  return furnisher.room();
}

}  // namespace quor::sample
