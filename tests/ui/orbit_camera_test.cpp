#include "ui/models/view/orbit_camera.h"

#include <gtest/gtest.h>

#include <cmath>

#include "ui/viewport/viewport.h"

namespace quor::ui::test {
namespace {

constexpr double kClose = 1e-9;

// In pixels from the picture's left and top edge, and depth.
Vec3 seenAt(const gs::Camera& camera, const Vec3& p) {
  const auto& r = camera.rotation;
  const Vec3 c = {r[0] * p[0] + r[1] * p[1] + r[2] * p[2] + camera.translation[0],
                  r[3] * p[0] + r[4] * p[1] + r[5] * p[2] + camera.translation[1],
                  r[6] * p[0] + r[7] * p[1] + r[8] * p[2] + camera.translation[2]};
  return {camera.fx * c[0] / c[2] + camera.cx, camera.fy * c[1] / c[2] + camera.cy, c[2]};
}

void expectNear(const Vec3& a, const Vec3& b) {
  for (size_t i = 0; i < 3; ++i) EXPECT_NEAR(a[i], b[i], 1e-6) << i;
}

TEST(OrbitCamera, CirclesItsTargetAndStaysUpright) {
  OrbitCamera eye;
  eye.setUp({0, 0, 1});
  eye.frame({1, 2, 3}, 2);
  for (int i = 0; i < 500; ++i) eye.orbit(0.07, 0.05 * std::sin(0.3 * i));
  expectNear(eye.target(), {1, 2, 3});
  const gs::Camera camera = eye.camera(300, 200);
  expectNear(seenAt(camera, {1, 2, 3}), {150, 100, eye.distance()});
  const Vec3 above = seenAt(camera, {1, 2, 3.5});
  EXPECT_NEAR(above[0], 150, 1e-6);
  EXPECT_LT(above[1], 100);
  // Never over the top, and always back.
  for (int i = 0; i < 500; ++i) eye.orbit(0, 0.1);
  const gs::Camera steep = eye.camera(300, 200);
  EXPECT_LT(std::abs(steep.rotation[8]), 0.999);
  eye.orbit(0, -0.5);
  EXPECT_LT(std::abs(eye.camera(300, 200).rotation[8]), std::abs(steep.rotation[8]));
}

TEST(OrbitCamera, TheSceneFollowsTheHand) {
  OrbitCamera eye;
  eye.frame({0, 0, 0}, 1);
  const Vec3 before = seenAt(eye.camera(400, 200), {0, 0, 0});
  eye.pan(0.25, -0.1);
  const Vec3 after = seenAt(eye.camera(400, 200), {0, 0, 0});
  expectNear(after - before, {50, -20, 0});
  const Vec3 place = eye.eye();
  eye.look(0.3, 0.1);
  expectNear(eye.eye(), place);
}

TEST(OrbitCamera, TakesOverAPhotographsView) {
  gs::Camera photograph;
  photograph.width = 600;
  photograph.height = 400;
  photograph.fx = photograph.fy = 500;
  photograph.cx = 300;
  photograph.cy = 200;
  const double c = std::cos(0.4), s = std::sin(0.4);
  photograph.rotation = {c, -s, 0, s, c, 0, 0, 0, 1};  // rolled
  photograph.translation = {0.3, -0.2, 1};
  OrbitCamera eye;
  eye.take(photograph, 4);
  const gs::Camera same = eye.camera(600, 400);
  for (const Vec3& p : {Vec3{0.1, 0.2, 3}, Vec3{-1, 0.5, 6}}) expectNear(seenAt(same, p), seenAt(photograph, p));
  EXPECT_NEAR(length(eye.target() - eye.eye()), 4, kClose);
}

TEST(Viewport, DrawsTheFrustumOfACameraWhereItStands) {
  OrbitCamera eye;
  eye.frame({0, 0, 0}, 1);
  gs::Camera camera = eye.camera(100, 50);
  const Vec3 back = eye.target() - eye.eye();
  camera.translation[2] -= 0.5 * length(back);  // half way towards what is looked at
  const gs::Camera view = eye.camera(100, 50);
  const auto lines = frustumOnScreen(camera, 0.1, view);
  ASSERT_TRUE(lines);
  EXPECT_NEAR((*lines)[0][0], 50, 1e-6);
  EXPECT_NEAR((*lines)[0][1], 25, 1e-6);
  EXPECT_LT((*lines)[1][0], 50);
  EXPECT_LT((*lines)[1][1], 25);
  EXPECT_GT((*lines)[3][0], 50);
  EXPECT_GT((*lines)[3][1], 25);
  camera.translation[2] += 2 * length(back);
  EXPECT_FALSE(frustumOnScreen(camera, 0.1, view));
}

}  // namespace
}  // namespace quor::ui::test
