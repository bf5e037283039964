#include <gmock/gmock.h>

#include <numbers>

#include "ingest/extraction.h"
#include "ingest/frame_extractor.h"

namespace quor {
namespace {

using std::numbers::pi;
using test::colourAt;
using test::makeClip;
using test::TestExtraction;
using testing::HasSubstr;

TEST(SphereVideo, OfAnotherShapeIsWarnedAboutAndImpossibleViewsAreRefused) {
  TestExtraction extraction;
  extraction.settings.viewResolution = 256;
  const auto clip = makeClip(extraction.folder / "a.mp4", std::string("testsrc=size=64x48:rate=8:duration=1"));
  extraction.run(clip, InputKind::Video360);
  EXPECT_THAT(extraction.logged(), HasSubstr("warning: Input does not look equirectangular (expected a 2:1 aspect "
                                             "ratio); re-projecting anyway.\n"));
  extraction.settings.fieldOfView = 180;
  EXPECT_THAT(extraction.failure(clip, InputKind::Video360), HasSubstr("cannot show 180 degrees"));
}

// Lens 1 brightens and lens 2 darkens with time; they were shown together when their sum stays.
std::filesystem::path lensClip(const std::filesystem::path& target, const std::string& secondDuration) {
  const std::string common = "size=64x64:rate=10:duration=";
  return makeClip(target, {"-f", "lavfi", "-i", "color=black:" + common + "2,geq=lum='30+8*N':cb=128:cr=128", "-f",
                           "lavfi", "-i", "color=black:" + common + secondDuration + ",geq=lum='220-8*N':cb=128:cr=128",
                           "-map", "0", "-map", "1", "-c:v", "libx264", "-crf", "4", "-f", "mp4"});
}

TEST(FisheyeVideo, LensesAreSampledAtTheSameInstants) {
  TestExtraction extraction;
  extraction.settings.targetFrameCount = 7;
  extraction.settings.maxDimension = 32;
  extraction.settings.fisheyeFieldOfView = 200;
  const auto clip = lensClip(extraction.folder / "a.insv", "1.7");
  EXPECT_EQ(detectVideoKind(clip), InputKind::DualFisheye);
  const ExtractionResult result = extraction.run(clip, InputKind::DualFisheye);
  EXPECT_EQ(result.lensSize, 32);
  ASSERT_EQ(result.groups.size(), 2u);
  ASSERT_EQ(result.groups[0].images.size(), 6u);  // the second track ends early
  ASSERT_EQ(result.groups[1].images.size(), 6u);
  for (size_t i = 0; i < 6; ++i) {
    EXPECT_EQ(result.groups[0].images[i], "f0000" + std::to_string(i + 1) + "_lens1.jpg");
    EXPECT_EQ(result.groups[1].images[i], "f0000" + std::to_string(i + 1) + "_lens2.jpg");
    const double sum = colourAt(readImage(result.frames[2 * i]), 16, 16).green +
                       colourAt(readImage(result.frames[2 * i + 1]), 16, 16).green;
    EXPECT_NEAR(sum, (250 - 32) * 255.0 / 219, 6);
  }
  EXPECT_FALSE(std::filesystem::exists(extraction.folder / "frames/f00007_lens1.jpg"));
  const CameraGroup& lens = result.groups[1];
  EXPECT_EQ(lens.cameraModel, "OPENCV_FISHEYE");
  EXPECT_TRUE(lens.usesFisheyeMask);
  ASSERT_EQ(lens.cameraParams.size(), 8u);
  EXPECT_NEAR(lens.cameraParams[0], 16 / (100 * pi / 180), 1e-9);
  EXPECT_THAT(extraction.logged(),
              testing::AllOf(HasSubstr("Dual-fisheye video: a.insv"), HasSubstr("~7 frames per lens x 2 lenses"),
                             HasSubstr("Fisheye lens assumed 200 degrees, f=9.2 px (COLMAP refines it)")));
}

TEST(FisheyeVideo, OfOneTrackIsOneLens) {
  TestExtraction extraction;
  const auto clip = makeClip(extraction.folder / "a.mp4", std::string("testsrc=size=64x64:rate=8:duration=1"));
  const ExtractionResult result = extraction.run(clip, InputKind::DualFisheye);
  ASSERT_EQ(result.groups.size(), 1u);
  EXPECT_EQ(result.groups[0].images.size(), result.frames.size());
  EXPECT_THAT(extraction.logged(), HasSubstr("no pair of square lens tracks"));
}

// One lens sees far less than the other: it is compared with itself, and only its blurry frames go.
TEST(FisheyeVideo, BlurIsJudgedLensByLens) {
  TestExtraction extraction;
  extraction.settings.targetFrameCount = 20;
  const std::string source = "testsrc=size=64x64:rate=10:duration=2,format=gray";
  const auto clip =
      makeClip(extraction.folder / "a.insv", {"-f", "lavfi", "-i", source, "-f", "lavfi", "-i",
                                              source + ",boxblur=5:enable='between(n,8,10)',lutyuv=y='128+(val-128)/4'",
                                              "-map", "0", "-map", "1", "-c:v", "libx264", "-crf", "4", "-f", "mp4"});
  const ExtractionResult result = extraction.run(clip, InputKind::DualFisheye);
  EXPECT_EQ(result.groups[0].images.size(), 20u);
  EXPECT_EQ(result.groups[1].images.size(), 17u);
  EXPECT_EQ(result.rejected, 3u);
  EXPECT_EQ(result.frames.size(), 37u);
  EXPECT_FALSE(std::filesystem::exists(extraction.folder / "frames/f00009_lens2.jpg"));
  EXPECT_THAT(extraction.logged(), HasSubstr("Rejected 3 blurry frames (median score "));
}

TEST(VideoKind, TwoToOneIsASphereOnlyWhereItsEdgesMeet) {
  const test::TempFolder folder;
  const auto kindOf = [&](const char* source) {
    return detectVideoKind(makeClip(folder / "a.mp4", std::string(source)));
  };
  EXPECT_EQ(kindOf("testsrc=size=256x128:rate=5:duration=1"), InputKind::Video);
  EXPECT_EQ(kindOf("testsrc=size=192x144:rate=5:duration=1,v360=input=flat:output=e:h_fov=100:v_fov=80:w=192:h=96"),
            InputKind::Video360);
  EXPECT_EQ(kindOf("testsrc=size=128x128:rate=5:duration=1"), InputKind::Video);
}

}  // namespace
}  // namespace quor
