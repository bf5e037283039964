#include "ingest/sharpness.h"

#include <gmock/gmock.h>

#include "base/image/image.h"
#include "support/temp_folder.h"

namespace quor {
namespace {

using test::TempFolder;

// Grey stripes, one pixel wide, whose Laplacian is +-4 * contrast.
std::filesystem::path writeStripes(const std::filesystem::path& path, int width, int height, int contrast) {
  Image image{width, height, {}};
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) image.rgb.insert(image.rgb.end(), 3, static_cast<uint8_t>(x % 2 * contrast));
  }
  writePng(path, image);
  return path;
}

TEST(Sharpness, IsTheVarianceOfTheLaplacianOfAtMost512Columns) {
  const TempFolder folder;
  // +-2 * contrast at every interior pixel, as many of each sign.
  EXPECT_NEAR(*scoreSharpness(writeStripes(folder / "a.png", 34, 20, 50)), 100.0 * 100.0, 0.01);
  EXPECT_NEAR(*scoreSharpness(writeStripes(folder / "b.png", 100, 900, 50)), 100.0 * 100.0, 0.01);  // not shrunk
  EXPECT_NEAR(*scoreSharpness(writeStripes(folder / "c.png", 1024, 64, 50)), 0, 1);                 // stripes average
  EXPECT_EQ(scoreSharpness(writeStripes(folder / "d.png", 3, 3, 50)), 0.0);
  EXPECT_EQ(scoreSharpness(writeStripes(folder / "e.png", 2, 9, 50)), 0.0);
  EXPECT_EQ(scoreSharpness(test::writeFile(folder / "f.png", "no image")), std::nullopt);
}

TEST(Sharpness, RejectsTheBlurriestUpToTheLimitAndKeepsWhatItCannotRead) {
  const TempFolder folder;
  std::vector<std::filesystem::path> paths;
  const auto add = [&](int contrast) {
    paths.push_back(writeStripes(folder / (std::to_string(paths.size()) + ".png"), 16, 16, contrast));
  };
  for (const int contrast : {100, 12, 11, 100, 10, 100, 13, 9, 100, 8}) add(contrast);
  // The median is the fifth from above, 13; half of its score lies between those of 9 and 10.
  EXPECT_EQ(rejectBlurry(paths, 0.5, 0.4, nullptr).rejected, (std::vector{paths[7], paths[9]}));

  // With a sharper median six lie below; four may go.
  paths[6] = writeStripes(folder / "6.png", 16, 16, 100);
  SharpnessResult result = rejectBlurry(paths, 0.5, 0.4, nullptr);
  EXPECT_DOUBLE_EQ(result.median, 200.0 * 200.0);
  EXPECT_EQ(result.rejected, (std::vector{paths[2], paths[4], paths[7], paths[9]}));
  EXPECT_EQ(result.kept, (std::vector{paths[0], paths[1], paths[3], paths[5], paths[6], paths[8]}));

  paths[1] = test::writeFile(folder / "1.png", "");
  paths.insert(paths.begin(), folder / "missing.png");
  result = rejectBlurry(paths, 0.5, 0.4, nullptr);
  EXPECT_THAT(result.kept, testing::IsSupersetOf({paths[0], paths[2]}));
  EXPECT_DOUBLE_EQ(result.median, 200.0 * 200.0);

  const std::vector unreadable = {folder / "missing.png"};
  EXPECT_EQ(rejectBlurry(unreadable, 0.5, 0.4, nullptr).kept, unreadable);
  EXPECT_TRUE(rejectBlurry({}, 0.5, 0.4, nullptr).kept.empty());
}

TEST(Sharpness, EqualScoresAreAllKept) {
  const TempFolder folder;
  const std::vector<std::filesystem::path> paths(20, writeStripes(folder / "a.png", 16, 16, 50));
  EXPECT_TRUE(rejectBlurry(paths, 1.0, 0.4, nullptr).rejected.empty());
}

}  // namespace
}  // namespace quor
