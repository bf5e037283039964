#include "ingest/photo/jpeg_encoder.h"

#include <gmock/gmock.h>

#include <algorithm>

#include "ingest/ingest_error.h"
#include "ingest/video/frame_convert.h"
#include "picture_files.h"
#include "support/temp_folder.h"

namespace quor {
namespace {

using test::meanDifference;
using test::TempFolder;

// Smooth colours, so that 4:2:0 loses little.
Image colourful(int width, int height) {
  Image image{width, height, {}};
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      image.rgb.push_back(static_cast<uint8_t>(std::min(x + 30, 255)));
      image.rgb.push_back(static_cast<uint8_t>(std::min(y + 60, 255)));
      image.rgb.push_back(static_cast<uint8_t>(std::max(200 - x, 0)));
    }
  }
  return image;
}

FramePtr asFrame(const Image& image) {
  FramePtr frame = test::blankFrame(image.width, image.height, AV_PIX_FMT_RGB24);
  for (int y = 0; y < image.height; ++y) {
    std::copy_n(&image.rgb[static_cast<size_t>(3 * y * image.width)], 3 * image.width,
                frame->data[0] + y * frame->linesize[0]);
  }
  return convertFrame(std::move(frame), image.width, image.height, AV_PIX_FMT_YUVJ420P);
}

TEST(JpegEncoder, KeepsColoursAtEverySizeAndGetsCoarserWithTheScale) {
  const TempFolder folder;
  JpegEncoder best(2);
  for (const auto& [width, height] : {std::pair(160, 120), std::pair(33, 17), std::pair(1, 1), std::pair(3, 200)}) {
    const Image image = colourful(width, height);
    writeFrameFile(folder / "a.jpg", best.encode(*asFrame(image)));
    const Image back = readImage(folder / "a.jpg");
    ASSERT_EQ(back.width, width);
    ASSERT_EQ(back.height, height);
    EXPECT_LT(meanDifference(image, back), 3) << width << " x " << height;
  }
  const Image image = colourful(160, 120);
  JpegEncoder worst(31);
  const FramePtr frame = asFrame(image);
  EXPECT_LT(worst.encode(*frame).size() * 3, best.encode(*frame).size() * 2);
}

TEST(JpegEncoder, SaysWhatCannotBeWritten) {
  const TempFolder folder;
  JpegEncoder encoder(2);
  EXPECT_THAT(test::thrownText([&] { encoder.encode(*test::blankFrame(70000, 1, AV_PIX_FMT_YUVJ420P)); }),
              testing::StartsWith("A picture of 70000 x 1 pixels cannot be written as JPEG: "));
  EXPECT_THROW(writeFrameFile(folder / "none/a.jpg", encoder.encode(*asFrame(colourful(8, 8)))), IngestError);
}

}  // namespace
}  // namespace quor
