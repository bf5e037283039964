#include "base/image/image.h"

#include <gmock/gmock.h>

#include <cmath>

#include "support/platform.h"
#include "support/temp_folder.h"

namespace quor {
namespace {

using test::TempFolder;
using test::thrownText;
using test::writeFile;
using testing::StartsWith;

Image gradient(int width, int height) {
  Image image{width, height, {}};
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      for (const int value : {x * 255 / width, y * 255 / height, (x + y) % 200}) {
        image.rgb.push_back(static_cast<uint8_t>(value));
      }
    }
  }
  return image;
}

TEST(Image, PngKeepsEveryByteAndJpegNearlyAll) {
  const TempFolder folder;
  const Image image = gradient(67, 41);
  writePng(folder / "a.png", image);
  EXPECT_EQ(readImage(folder / "a.png").rgb, image.rgb);

  writeJpeg(folder / "a.jpg", image, 95);
  const Image jpeg = readImage(folder / "a.jpg");
  ASSERT_EQ(jpeg.rgb.size(), image.rgb.size());
  double error = 0;
  for (size_t i = 0; i < image.rgb.size(); ++i) error += std::abs(int{jpeg.rgb[i]} - int{image.rgb[i]});
  EXPECT_LT(error / static_cast<double>(image.rgb.size()), 4.0);
  EXPECT_EQ(readImageSize(folder / "a.jpg").width, 67);
}

TEST(Image, SaysWhichFileCannotBeReadAndWhy) {
  const TempFolder folder;
  writePng(folder / "whole.png", gradient(30, 30));
  const std::string whole = test::readFile(folder / "whole.png");
  writeFile(folder / "empty.png", "");
  writeFile(folder / "text.jpg", "This is no picture at all.");
  writeFile(folder / "cut.png", whole.substr(0, whole.size() / 2));
  writeFile(folder / "header.png", whole.substr(0, 10));
  const std::string size("\0\0\x75\x30\0\0\x75\x30", 8);  // 30000 both ways
  writeFile(folder / "huge.png", std::string(whole).replace(16, 8, size));
  std::filesystem::create_directories(folder / "folder.png");
  for (const char* name : {"missing.png", "empty.png", "text.jpg", "cut.png", "header.png", "huge.png", "folder.png"}) {
    const auto path = folder / name;
    const auto refused = StartsWith("Cannot read image " + toUtf8(path) + ": ");
    EXPECT_THAT(thrownText([&] { (void)readImage(path); }), refused);
    if (path.filename() == "cut.png") continue;  // its header is whole
    EXPECT_THAT(thrownText([&] { (void)readImageSize(path); }), refused);
  }
}

TEST(Image, AsksTheRegisteredDecoderForOtherFormatsOnly) {
  const TempFolder folder;
  const auto strange = writeFile(folder / "a.jpg", "strange"), broken = writeFile(folder / "b.jpg", "broken");
  const auto unknown = writeFile(folder / "c.jpg", "unknown"), cut = writeFile(folder / "cut.png", "");
  writePng(folder / "whole.png", gradient(30, 30));
  const std::string whole = test::readFile(folder / "whole.png");
  writeFile(cut, whole.substr(0, whole.size() / 2));
  const auto plainReason = thrownText([&] { (void)readImage(unknown); });
  registerImageDecoder([](const std::filesystem::path& path) -> std::optional<Image> {
    const std::string text = test::readFile(path);
    if (text == "strange") return gradient(5, 4);
    if (text == "broken") throw std::runtime_error("it is broken");
    if (text != "unknown") ADD_FAILURE() << "asked for " << toUtf8(path);
    return std::nullopt;
  });
  EXPECT_EQ(readImage(strange).rgb, gradient(5, 4).rgb);
  EXPECT_EQ(readImageSize(strange).height, 4);
  EXPECT_EQ(thrownText([&] { (void)readImage(broken); }), "Cannot read image " + toUtf8(broken) + ": it is broken");
  EXPECT_EQ(thrownText([&] { (void)readImage(unknown); }), plainReason);
  EXPECT_EQ(readImage(folder / "whole.png").width, 30);
  EXPECT_NE(thrownText([&] { (void)readImage(cut); }), "no exception");
  registerImageDecoder({});
}

TEST(Image, FailedWriteKeepsTheOldFile) {
  if (test::kWindows) GTEST_SKIP() << "there is no device that is always full";
  const TempFolder folder;
  const auto path = writeFile(folder / "a.jpg", "old");
  std::filesystem::create_symlink("/dev/full", folder / "a.jpg.partial");
  EXPECT_THAT(thrownText([&] { writeJpeg(path, gradient(8, 8), 90); }), StartsWith("Cannot write " + toUtf8(path)));
  EXPECT_EQ(test::readFile(path), "old");
}

TEST(Image, ShrinkingAveragesAreas) {
  Image image = gradient(60, 34);
  for (size_t i = 0; i < image.rgb.size(); i += 7) image.rgb[i] = static_cast<uint8_t>(i * 2654435761u >> 24);
  const Image small = resizeImage(image, 20, 17);
  ASSERT_EQ(small.rgb.size(), 20u * 17 * 3);
  for (size_t i = 0; i < small.rgb.size(); ++i) {
    const size_t x = i / 3 % 20 * 3, y = i / 60 * 2;
    double sum = 0;
    for (size_t k = 0; k < 6; ++k) sum += image.rgb[((y + k / 3) * 60 + x + k % 3) * 3 + i % 3];
    ASSERT_NEAR(small.rgb[i], sum / 6, 0.51) << i;
  }
  EXPECT_EQ(resizeImage(image, 1, 1).rgb.size(), 3u);
  EXPECT_EQ(resizeImage(image, 49, 50).rgb.size(), 49u * 50 * 3);
}

}  // namespace
}  // namespace quor
