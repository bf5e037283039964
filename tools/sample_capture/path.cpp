#include "sample_capture/path.h"

#include "sample_capture/hard_rooms.h"
#include "sample_capture/orbit_parts.h"

namespace quor::sample {
namespace {

using std::numbers::pi;

// How far a hand strays by the picture with the number `at`.
double wander(double reach, double at, double phase) {
  return reach * std::sin(0.7 * at + phase);
}

Vec3 direction(double heading, double rise) {
  return {std::cos(rise) * std::cos(heading), std::cos(rise) * std::sin(heading), std::sin(rise)};
}

double headingOf(Vec3 v) {
  return std::atan2(v.y, v.x);
}

// A square with round corners, within the ring that is free of furniture.
Vec3 onWalk(double angle, double height) {
  const double x = std::cos(angle) / 2.1, y = std::sin(angle) / 1.95;
  return onOrbit(std::pow(x * x * x * x + y * y * y * y, -0.25), angle, height);
}

Pose walkPose(const Orbit& orbit, double start, int i) {
  constexpr double kLookAhead = 0.35, kInwards = 0.3;
  const double angle = start + turnAt(orbit, i);
  const Vec3 eye = onWalk(angle, 1.45 + wander(0.05, i, start));
  const double heading = headingOf(onWalk(angle + kLookAhead, 0) - onWalk(angle, 0)) + kInwards;
  return lookAlong(eye, direction(heading + wander(0.1, 1.3 * i, start), -0.12 + wander(0.06, 1.7 * i, start)),
                   wander(0.04, 1.1 * i, start));
}

// Looks across the middle, swinging from one side to the other.
Pose panPose(const Orbit& orbit, double start, int i) {
  constexpr std::array<double, 12> kAside = {-48, -40, -32, -24, 8, 40, 48, 40, 32, 24, -8, -40};  // degrees
  const double angle = start + turnAt(orbit, i) / 2;
  const double heading = angle + pi * (1 + kAside[static_cast<size_t>(i) % kAside.size()] / 180);
  return lookAlong(onOrbit(2, angle, 1.5 + wander(0.15, i, start)),
                   direction(heading, -0.2 + wander(0.08, 1.3 * i, start)), wander(0.05, i, start));
}

Pose cutPose(const Orbit& orbit, double start, int i) {
  struct Stretch {
    double from, to;  // around the middle, in units of 60 degrees
    double radius, height;
  };
  constexpr std::array<Stretch, 3> kStretches = {{{0, 2, 2.05, 1.4}, {3, 1, 1.95, 1.75}, {1.7, 3.7, 2.1, 1.1}}};
  const double along = 3.0 * i / orbit.count;
  const auto number = static_cast<size_t>(along);
  const Stretch& stretch = kStretches[number];
  const double angle = stretch.from + (stretch.to - stretch.from) * (along - static_cast<double>(number));
  const Vec3 eye = onOrbit(stretch.radius, start + angle * pi / 3 * (orbit.turn / 360), stretch.height);
  const Vec3 aim{wander(0.2, i, start), wander(0.2, 1.3 * i, start), 0.72 + wander(0.1, 1.7 * i, start)};
  return lookAlong(eye, normalized(aim - eye), wander(0.1, i, start));
}

// Through the corridor along x, looking ahead and to one side.
Pose corridorPose(const Orbit& orbit, double start, int i) {
  constexpr double kAside = 1.0, kAway = 0.6;  // radians; metres towards the other wall
  const double side = start < 0 ? -1 : 1;
  const double along = kCorridorReach * (2.0 * i / orbit.count * (orbit.turn / 360) - 1);
  const Vec3 eye{along, wander(0.1, i, start) - side * kAway, 1.45 + wander(0.05, 1.3 * i, start)};
  const double aside = side * kAside + wander(0.1, 1.1 * i, start);
  return lookAlong(eye, direction(aside, -0.2 + wander(0.05, 1.7 * i, start)), wander(0.03, 0.9 * i, start));
}

// In the world of the things that turn, a camera on its tripod goes around them. Half-way the tripod is slowly raised:
// turns about one axis before one camera leave its focal length in doubt.
Pose turntablePose(const Orbit& orbit, double start, int i) {
  constexpr double kAway = 2.5, kLow = 1.2, kHigh = 2.1;
  const double raised = std::clamp((1.0 * i / orbit.count - 0.2) / 0.6, 0.0, 1.0);
  const Vec3 eye = onOrbit(kAway, start + turnAt(orbit, i), kLow + (kHigh - kLow) * raised);
  return lookAlong(eye, normalized(Vec3{0, 0, 0.5} - eye), 0);
}

using PoseAt = Pose (*)(const Orbit&, double, int);

PoseAt poseOn(SceneKind scene, Path path) {
  if (scene == SceneKind::Corridor) return corridorPose;
  if (scene == SceneKind::Turntable || scene == SceneKind::TexturedTurntable) return turntablePose;
  if (path == Path::Walk) return walkPose;
  if (path == Path::Pan) return panPose;
  return path == Path::Cuts ? cutPose : nullptr;
}

}  // namespace

std::vector<PinholeView> pathViews(SceneKind scene, Path path, const Orbit& orbit, bool video) {
  const PoseAt poseAt = poseOn(scene, path);
  if (poseAt == nullptr) return video ? videoViews(orbit) : orbitViews(orbit);
  SplitMix64 random = randomOf(orbit);
  const double start = startAngle(random);
  const PinholeView lens = lensOf(orbit);
  std::vector<PinholeView> views;
  views.reserve(static_cast<size_t>(orbit.count));
  for (int i = 0; i < orbit.count; ++i) views.push_back(placed(lens, poseAt(orbit, start, i)));
  return views;
}

}  // namespace quor::sample
