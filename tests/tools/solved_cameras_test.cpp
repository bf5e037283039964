#include "support/solved_cameras.h"

#include <gtest/gtest.h>

#include "sample_capture/orbit.h"

namespace quor::test {
namespace {

using sample::Pose;
using sample::Vec3;

// What a perfect solve makes of true cameras: another origin, another direction, another size.
gs::colmap::Model solvedFrom(const std::vector<TruePose>& truth) {
  const Pose world = poseOf({0.3, -0.5, 0.7, 0.2}, {1, -2, 5});
  gs::colmap::Model model;
  for (const TruePose& camera : truth) {
    // x_camera = R (W^-1 (y / scale)) + t, up to the size, which does not matter to a camera.
    Pose pose;
    for (size_t row = 0; row < 9; row += 3) {
      const auto& r = camera.pose.rotation;
      const Vec3 axis = world.toCamera({r[row], r[row + 1], r[row + 2]}) - world.toCamera({});
      pose.rotation[row] = axis.x;
      pose.rotation[row + 1] = axis.y;
      pose.rotation[row + 2] = axis.z;
    }
    const auto [x, y, z] = pose.toCamera(world.toCamera(camera.pose.centre()) * -0.4);
    model.images.push_back({1, 1, sample::quaternionOf(pose.rotation), {x, y, z}, "images/" + camera.name});
  }
  return model;
}

TEST(SolvedCameras, AreComparedUpToASimilarity) {
  std::vector<TruePose> truth;
  for (const sample::EquirectangularView& view : sample::equirectangularViews({20, {64, 32}, 3})) {
    truth.push_back({formatText("%zu.jpg", truth.size()), view});
  }
  for (const bool flat : {false, true}) {
    for (TruePose& camera : truth) {
      if (flat) camera.pose = poseOf(sample::quaternionOf(camera.pose.rotation), camera.pose.centre() * Vec3{1, 1, 0});
    }
    const CameraErrors exact = compareWithTruth(solvedFrom(truth), truth);
    EXPECT_EQ(exact.compared, 20u);
    EXPECT_LT(exact.rotation, 1e-5);
    EXPECT_LT(exact.position, 1e-7);
  }
  // Turned about their own axes, and every other one moved up: of the step the mean takes half.
  std::vector<TruePose> wrong = truth;
  for (size_t i = 0; i < wrong.size(); ++i) {
    wrong[i].pose = turned(wrong[i].pose, viewTurn(0, 2));
    const Vec3 step = i % 2 == 0 ? Vec3{0, 0, 0.18} : Vec3{};
    wrong[i].pose = poseOf(sample::quaternionOf(wrong[i].pose.rotation), wrong[i].pose.centre() + step);
  }
  const CameraErrors errors = compareWithTruth(solvedFrom(wrong), truth);
  EXPECT_NEAR(errors.rotation, 2, 0.2);
  EXPECT_NEAR(errors.position, 0.05, 0.005);
}

}  // namespace
}  // namespace quor::test
