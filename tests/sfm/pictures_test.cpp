// What is cut off and what is hidden, in pixels and in words.
#include <gmock/gmock.h>

#include <cmath>
#include <limits>
#include <numbers>

#include "sfm/colmap_output.h"
#include "sfm/extract/fisheye_mask.h"
#include "sfm/extract/fisheye_scale.h"
#include "sfm/map/crop.h"
#include "solve_fixture.h"

namespace quor::test {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;

Crop cropOf(double edges, double bottom) {
  IngestSettings settings;
  settings.fisheyeCropEdges = edges;
  settings.fisheyeCropBottom = bottom;
  return frameCrop(settings);
}

TEST(Crop, CutsTheEdgesAndTheLowerEnd) {
  EXPECT_TRUE(cropOf(0, 0).whole());
  EXPECT_TRUE(cropOf(-1, std::numeric_limits<double>::quiet_NaN()).whole());
  const Crop crop = cropOf(0.1, 0.25);
  EXPECT_DOUBLE_EQ(crop.maxX, 0.9);
  EXPECT_DOUBLE_EQ(crop.minY, 0.1);
  EXPECT_DOUBLE_EQ(crop.maxY, 0.75);
  EXPECT_DOUBLE_EQ(cropOf(0.2, 0.05).maxY, 0.8);
}

TEST(Crop, LeavesEnoughToTrainOn) {
  const Crop crop = cropOf(0.3, 0.6);
  EXPECT_NEAR(crop.minY, 0.15, 1e-12);
  EXPECT_NEAR(crop.maxY - crop.minY, kMinKept, 1e-12);
  EXPECT_EQ(crop.messages[0],
            "Edge crop reduced from 30% to 15% — with the bottom crop it would have left too little of the frame to "
            "train on.");
  for (const double edges : {0.0, 0.4, 0.5, 7.0}) {
    for (const double bottom : {0.0, 0.5, 0.9, 1e300}) {
      const Crop odd = cropOf(edges, bottom);
      EXPECT_GE(odd.maxX - odd.minX, kMinKept - 1e-12);
      EXPECT_GE(odd.maxY - odd.minY, kMinKept - 1e-12);
      EXPECT_GE(odd.minX, 0);
    }
  }
}

TEST(FisheyeScale, KeepsThePinholeImageWithinTheLens) {
  const auto scaleOf = [](int32_t model, uint64_t width, uint64_t height, double focal) {
    const gs::colmap::Camera camera{
        1,
        model,
        width,
        height,
        {focal, focal, static_cast<double>(width) / 2, static_cast<double>(height) / 2, 0, 0, 0, 0}};
    return fisheyeScale(camera);
  };
  const auto cornerOf = [](double scale, double focal) { return std::atan(scale * 240 * std::numbers::sqrt2 / focal); };
  constexpr int32_t kOpenCv = 4, kOpenCvFisheye = 5;
  const double wide = 240 / (95 * std::numbers::pi / 180), narrow = 240 / (50 * std::numbers::pi / 180);
  EXPECT_NEAR(scaleOf(kOpenCvFisheye, 480, 480, wide).value(), 1, 0.01);
  EXPECT_NEAR(cornerOf(*scaleOf(kOpenCvFisheye, 480, 480, narrow), narrow) * 180 / std::numbers::pi, 48.5, 1e-6);
  EXPECT_TRUE(scaleOf(kOpenCvFisheye, 640, 480, 250));
  EXPECT_FALSE(scaleOf(kOpenCvFisheye, 640, 480, 500));
  EXPECT_FALSE(scaleOf(kOpenCv, 480, 480, 100));
  EXPECT_FALSE(scaleOf(kOpenCvFisheye, 480, 480, 0));
}

class Mask : public ::testing::Test {
 protected:
  // Whether the pixel that shows a direction, in degrees from the axis and around it from the right downwards, is seen.
  bool shows(double fromAxis, double around) const {
    const Image mask = fisheyeMask(settings, kSize);
    const double r = kSize / 2.0 * fromAxis / (settings.fisheyeFieldOfView / 2);
    const double angle = around * std::numbers::pi / 180;
    const auto x = static_cast<size_t>(kSize / 2.0 + r * std::cos(angle));
    const auto y = static_cast<size_t>(kSize / 2.0 + r * std::sin(angle));
    return mask.rgb[3 * (y * kSize + x)] == 255;
  }

  static constexpr int kSize = 400;
  IngestSettings settings;
};

TEST_F(Mask, HidesTheCornersTheRimAndTheGround) {
  EXPECT_TRUE(shows(84, 30));  // the model that the solve fits ends beside the lens
  EXPECT_FALSE(shows(86, 30));
  EXPECT_FALSE(shows(120, 45));
  settings.fisheyeEdgeMargin = 0.2;
  EXPECT_TRUE(shows(75, 200));
  EXPECT_FALSE(shows(77, 200));
  settings = {};
  settings.fisheyeMaskBelow = 30;
  EXPECT_TRUE(shows(29, 90));  // straight down from the axis
  EXPECT_FALSE(shows(31, 90));
  EXPECT_TRUE(shows(80, 270));
  EXPECT_TRUE(shows(80, 29));  // to the right, turned down by so much
  EXPECT_FALSE(shows(80, 32));
  EXPECT_THAT(describeFisheyeMask(settings, fisheyeMask(settings, kSize)),
              AllOf(HasSubstr("Fisheye mask: hiding what is more than 85° off the axis"),
                    HasSubstr("30° below the horizon"), HasSubstr("% of each lens")));
}

TEST(Output, CountsInTheWordsOfAllVersions) {
  EXPECT_FLOAT_EQ(countedFraction("Processed file [3/12]").value(), 0.25f);
  EXPECT_FLOAT_EQ(countedFraction("I20260101 10:00:00.1 7 a.cc:3] Processed file [3/12]").value(), 0.25f);
  EXPECT_FLOAT_EQ(countedFraction("Matching block [2/4, 3/4] in 0.1s").value(), 0.375f);
  for (const char* line :
       {"", "[", "[/]", "[3/", "[3/0]", "[4/3]", "[1/2, ", "[1/2, 3", "[99999999999999/3]", "I2] ["}) {
    EXPECT_FALSE(countedFraction(line)) << line;
  }
}

}  // namespace
}  // namespace quor::test
