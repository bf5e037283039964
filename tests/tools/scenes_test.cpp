#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numbers>

#include "sample_capture/capture.h"
#include "sample_capture/hard_rooms.h"
#include "sample_capture/options.h"
#include "support/temp_folder.h"

namespace quor::sample {
namespace {

PinholeView viewFrom(Vec3 eye, Vec3 aim) {
  PinholeView view = pathViews(SceneKind::Room, Path::Walk, {1, {96, 64}, 1}, false).front();
  static_cast<Pose&>(view) = lookAlong(eye, normalized(aim - eye), 0);
  return view;
}

// The share of pixels in which two pictures differ visibly.
double difference(const Image& a, const Image& b) {
  size_t different = 0;
  for (size_t i = 0; i < a.rgb.size(); i += 3) {
    const auto apart = [&](size_t c) { return std::abs(a.rgb[i + c] - b.rgb[i + c]) > 12; };
    different += apart(0) || apart(1) || apart(2);
  }
  return static_cast<double>(different) / (static_cast<double>(a.rgb.size()) / 3);
}

double turnBetween(const Pose& a, const Pose& b) {
  double trace = 0;
  for (size_t i = 0; i < 9; ++i) trace += a.rotation[i] * b.rotation[i];
  return std::acos(std::clamp((trace - 1) / 2, -1.0, 1.0)) * 180 / std::numbers::pi;
}

Vec3 forward(const Pose& pose) {
  return pose.toWorld({0, 0, 1});
}

TEST(HardRooms, TwoPlacesLookTheSameButForASmallPart) {
  const auto apart = [](const Scene& scene, const PinholeView& a, const PinholeView& b) {
    return difference(renderView(scene, a), renderView(scene, b));
  };
  for (const uint64_t seed : {1, 2}) {
    const Scene symmetric(SceneKind::Symmetric, seed), corridor(SceneKind::Corridor, seed);
    const auto across = [&](double y, double height) {
      const PinholeView one = viewFrom({2, y, 1.5}, {0, 0, height}), other = viewFrom({-2, -y, 1.5}, {0, 0, height});
      return apart(symmetric, one, other);
    };
    EXPECT_LT(across(0.3, 0.4), 0.02);  // the object alone; the edges of its soft shadows differ
    EXPECT_GT(across(1.2, 1.3), 0.03);  // with what hangs on one of the walls
    EXPECT_LT(across(1.2, 1.3), 0.2);

    const auto doorsApart = [&](double x) {
      return apart(corridor, viewFrom({x, -0.6, 1.5}, {x + 0.5, 1.4, 1.4}),
                   viewFrom({x + kDoorPitch, -0.6, 1.5}, {x + kDoorPitch + 0.5, 1.4, 1.4}));
    };
    EXPECT_LT(doorsApart(-8), 0.005);
    EXPECT_GT(doorsApart(-5), 0.005);  // a sign
    EXPECT_LT(doorsApart(-5), 0.1);
  }
}

TEST(HardRooms, OnATurntableTheThingsTurnAndTheWallsStandStill) {
  const Orbit orbit{16, {96, 64}, 1};
  const Scene scene(SceneKind::TexturedTurntable, 1);
  const auto views = pathViews(SceneKind::TexturedTurntable, Path::Orbit, orbit, true);
  const Image first = renderView(scene, views[0]), fourth = renderView(scene, views[3]);
  const auto topRow = [](const Image& image) {
    return Image{image.width, 1, {image.rgb.begin(), image.rgb.begin() + 3 * image.width}};
  };
  EXPECT_EQ(difference(topRow(first), topRow(fourth)), 0);
  EXPECT_GT(difference(first, fourth), 0.3);

  // The walls are elsewhere for every view, so no true point lies on them.
  const TrueModel truth = trueModel(scene, views, 200, 1);
  for (size_t i = 0; i < truth.model.points.count(); ++i) {
    EXPECT_LT(std::hypot(truth.model.points.positions[3 * i], truth.model.points.positions[3 * i + 1]), 1.75);
  }
}

TEST(Paths, HaveTheMovementsThatTheyAreNamedFor) {
  const Orbit orbit{36, {96, 64}, 3};
  const auto views = [&](SceneKind scene, Path path) { return pathViews(scene, path, orbit, true); };
  const auto steps = [](const std::vector<PinholeView>& views, auto&& measure) {
    std::vector<double> all;
    for (size_t i = 1; i < views.size(); ++i) all.push_back(measure(views[i - 1], views[i]));
    std::sort(all.begin(), all.end());
    return all;
  };
  const auto distance = [](const Pose& a, const Pose& b) { return length(b.centre() - a.centre()); };
  const auto ahead = [](const Pose& a, const Pose& b) { return dot(normalized(b.centre() - a.centre()), forward(a)); };

  EXPECT_GT(steps(views(SceneKind::Room, Path::Walk), ahead)[0], 0.6);
  EXPECT_GT(steps(views(SceneKind::Corridor, Path::Orbit), ahead)[0], 0.2);
  const auto turns = steps(views(SceneKind::Room, Path::Pan), turnBetween);
  EXPECT_GT(turns.back(), 30);
  EXPECT_LT(turns.back(), 42);
  EXPECT_LT(turns[turns.size() / 2], 16);
  const auto jumps = steps(views(SceneKind::Room, Path::Cuts), distance);
  EXPECT_GT(jumps[jumps.size() - 2], 2 * jumps[jumps.size() - 3]);
}

TEST(Options, RefuseScenesAndPathsThatDoNotGoTogether) {
  const auto refusal = [](std::vector<const char*> arguments) {
    arguments.push_back("folder");
    return test::thrownText([&] { parseOptions(arguments); });
  };
  EXPECT_EQ(refusal({"--scene", "cave"}),
            "--scene takes room, symmetric, corridor, turntable or turntable-textured, not 'cave'.");
  EXPECT_EQ(refusal({"--path", "walk", "--scene", "corridor"}),
            "--path is for the room; the other scenes have ways of their own.");
  EXPECT_EQ(refusal({"--kind", "video360", "--path", "pan"}),
            "--scene and --path are for photos and video; the other kinds film an orbit of the room.");
  EXPECT_EQ(refusal({"--scene", "corridor", "--turn", "400"}),
            "The corridor ends: --turn takes 360 at most there, which is its whole length.");
  EXPECT_EQ(refusal({"--path", "cuts", "--kind", "video"}), "no exception");
}

}  // namespace
}  // namespace quor::sample
