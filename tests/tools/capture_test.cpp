#include "sample_capture/capture.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "sample_capture/options.h"
#include "support/temp_folder.h"

namespace quor::sample {
namespace {

constexpr Orbit kSmall{12, {72, 48}, 5};

// The matrix of a unit quaternion, w x y z.
std::array<double, 9> rotationOf(const std::array<double, 4>& q) {
  const auto [w, x, y, z] = q;
  return {1 - 2 * (y * y + z * z), 2 * (x * y - w * z),     2 * (x * z + w * y),
          2 * (x * y + w * z),     1 - 2 * (x * x + z * z), 2 * (y * z - w * x),
          2 * (x * z - w * y),     2 * (y * z + w * x),     1 - 2 * (x * x + y * y)};
}

PinholeView viewOf(const gs::colmap::Camera& camera, const gs::colmap::Image& image) {
  PinholeView view;
  view.width = static_cast<int>(camera.width);
  view.height = static_cast<int>(camera.height);
  gs::colmap::intrinsics(camera, view.fx, view.fy, view.cx, view.cy);
  view.rotation = rotationOf(image.qvec);
  view.translation = image.tvec;
  return view;
}

class TruthTest : public testing::Test {
 protected:
  Scene scene_{kSmall.seed};
  std::vector<PinholeView> views_ = orbitViews(kSmall);
  TrueModel truth_ = trueModel(scene_, views_, 300, kSmall.seed);
};

TEST_F(TruthTest, PointsProjectOntoTheirObservationsThroughTheCamerasOfTheModel) {
  const gs::colmap::Model& model = truth_.model;
  ASSERT_EQ(model.images.size(), views_.size());
  ASSERT_EQ(model.points.count(), 300u);
  std::vector<int> seen(model.points.count());
  for (size_t i = 0; i < model.images.size(); ++i) {
    const PinholeView view = viewOf(model.cameras.at(1), model.images[i]);
    for (const gs::colmap::Observation& observation : truth_.observations[i]) {
      const float* point = &model.points.positions[3 * observation.point];
      const Vec3 c = view.toCamera({point[0], point[1], point[2]});
      ASSERT_GT(c.z, 0);
      EXPECT_NEAR(view.fx * c.x / c.z + view.cx, observation.x, 1e-9);
      EXPECT_NEAR(view.fy * c.y / c.z + view.cy, observation.y, 1e-9);
      ++seen[observation.point];
    }
  }
  EXPECT_GE(*std::min_element(seen.begin(), seen.end()), 2);
}

TEST(Capture, TheSameSeedGivesTheSameBytesAndAnotherSeedAnotherRoom) {
  const auto shot = [](uint64_t seed) { return renderView(Scene(seed), orbitViews({4, {48, 32}, seed})[1]); };
  const Image first = shot(3);
  EXPECT_EQ(first.rgb, shot(3).rgb);
  EXPECT_NE(first.rgb, shot(4).rgb);
}

TEST(Capture, ADatasetIsWrittenOnceAndNeverOver) {
  test::TempFolder folder;
  const std::string out = toUtf8(folder / "room");
  const std::array arguments = {"--model", "--model-text", "--count", "3",        "--size",
                                "30x20",   "--points",     "20",      out.c_str()};
  const Options options = parseOptions(arguments);
  writeCapture(options);

  const gs::colmap::Model model = gs::colmap::loadModel(folder / "room/sparse/0", true);
  ASSERT_EQ(model.images.size(), 3u);
  EXPECT_EQ(model.points.count(), 20u);
  for (const gs::colmap::Image& image : model.images) {
    const ImageSize size = readImageSize(folder / "room/images" / image.name);
    EXPECT_EQ(size.width, 30);
    EXPECT_EQ(size.height, 20);
  }
  EXPECT_TRUE(std::filesystem::exists(folder / "room/sparse/0/points3D.txt"));
  EXPECT_EQ(test::thrownText([&] { writeCapture(options); }),
            out + "/images is there already and not empty. Remove it or choose another folder.");
}

}  // namespace
}  // namespace quor::sample
