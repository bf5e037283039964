#include "sample_capture/orbit.h"

#include "sample_capture/orbit_parts.h"

namespace quor::sample {
namespace {

constexpr double kWideRadius = 1.8;  // of cameras that see all around, so that they keep away from the walls
constexpr double kHeadingTurns = 3;  // of a pair of lenses, while they go around once

// The same place, looking the other way.
Pose turnedBack(const Pose& pose) {
  Pose back = pose;
  for (const size_t row : {size_t{0}, size_t{2}}) {
    for (size_t column = 0; column < 3; ++column) back.rotation[3 * row + column] *= -1;
    back.translation[row] *= -1;
  }
  return back;
}

// How far a camera strays from its way.
struct Sway {
  double radius = 0, height = 0;
  Vec3 aim;
  double roll = 0;
};

template <typename SwayAt>
std::vector<PinholeView> aroundTheMiddle(const Orbit& orbit, double start, SwayAt&& swayAt) {
  const PinholeView lens = lensOf(orbit);
  std::vector<PinholeView> views;
  for (int i = 0; i < orbit.count; ++i) {
    const double turn = turnAt(orbit, i);
    const Sway sway = swayAt(turn);
    const double radius = kRadius + 0.12 * std::sin(2 * turn) + sway.radius;
    const Vec3 eye = onOrbit(radius, start + turn, 1.4 + 0.42 * std::sin(3 * turn) + sway.height);
    const Vec3 aim{sway.aim.x, sway.aim.y, 0.72 + sway.aim.z};
    views.push_back(placed(lens, lookAlong(eye, normalized(aim - eye), sway.roll)));
  }
  return views;
}

// On the wide orbit, `angle` around the middle.
Vec3 onWideOrbit(double turn, double angle) {
  return onOrbit(kWideRadius + 0.12 * std::sin(2 * turn), angle, 1.35 + 0.3 * std::sin(3 * turn));
}

}  // namespace

std::vector<PinholeView> orbitViews(const Orbit& orbit) {
  SplitMix64 random = randomOf(orbit);
  const double start = startAngle(random);
  const auto jitter = [&](double reach) { return reach * (2 * random.uniform() - 1); };
  // Braced, so that the random numbers are taken in this order.
  return aroundTheMiddle(orbit, start, [&](double) {
    return Sway{jitter(0.04), jitter(0.06), {jitter(0.15), jitter(0.15), jitter(0.1)}, jitter(0.04)};
  });
}

// A camera that is always upright and always looks at one point leaves its focal length and distortion in doubt; the
// hand that holds it wanders and tilts.
std::vector<PinholeView> videoViews(const Orbit& orbit) {
  SplitMix64 random = randomOf(orbit);
  const double start = startAngle(random);
  const double phase = startAngle(random);
  return aroundTheMiddle(orbit, start, [&](double turn) {
    const auto wave = [&](double reach, int waves) { return reach * std::sin(waves * (turn + phase)); };
    return Sway{0, 0, {wave(0.3, 4), wave(0.3, 3), wave(0.2, 5)}, wave(0.2, 4)};
  });
}

std::vector<EquirectangularView> equirectangularViews(const Orbit& orbit) {
  EquirectangularView lens;
  lens.width = orbit.size.width;
  lens.height = orbit.size.height;
  SplitMix64 random = randomOf(orbit);
  const double start = startAngle(random);
  std::vector<EquirectangularView> views;
  for (int i = 0; i < orbit.count; ++i) {
    const double turn = turnAt(orbit, i), angle = start + turn;
    const Vec3 ahead{-std::sin(angle), std::cos(angle), 0};
    views.push_back(placed(lens, lookAlong(onWideOrbit(turn, angle), ahead, 0)));
  }
  return views;
}

// The pair tilts as a hand would tilt it: turned about the upright axis alone, a lens can be solved too narrow.
std::array<std::vector<FisheyeView>, 2> fisheyeViews(const Orbit& orbit) {
  FisheyeView lens;
  lens.width = orbit.size.width;
  lens.height = orbit.size.height;
  SplitMix64 random = randomOf(orbit);
  const double start = startAngle(random);
  std::array<std::vector<FisheyeView>, 2> views;
  for (int i = 0; i < orbit.count; ++i) {
    const double turn = turnAt(orbit, i), angle = start + turn, heading = kHeadingTurns * angle;
    const double rise = 0.2 * std::sin(5 * angle), roll = 0.25 * std::sin(4 * angle);
    const Vec3 forward{std::cos(rise) * std::cos(heading), std::cos(rise) * std::sin(heading), std::sin(rise)};
    const Pose front = lookAlong(onWideOrbit(turn, angle), forward, roll);
    views[0].push_back(placed(lens, front));
    views[1].push_back(placed(lens, turnedBack(front)));
  }
  return views;
}

}  // namespace quor::sample
