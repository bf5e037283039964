#include "sample_capture/capture.h"

#include <gtest/gtest.h>

#include "sample_capture/options.h"
#include "support/temp_folder.h"

namespace quor::sample {
namespace {

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
  EXPECT_EQ(
      test::thrownText([&] { writeCapture(options); }),
      toUtf8(folder / "room" / "images") + " is there already and not empty. Remove it or choose another folder.");
}

}  // namespace
}  // namespace quor::sample
