#include "ingest/photo/jpeg_encoder.h"

#include <gmock/gmock.h>

#include <algorithm>

#include "ingest/extraction.h"
#include "ingest/ingest_error.h"

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

TEST(JpegEncoder, KeepsColoursAtEverySizeAndGetsCoarserWithTheScale) {
  const TempFolder folder;
  JpegEncoder best(2);
  for (const auto& [width, height] : {std::pair(160, 120), std::pair(33, 17), std::pair(1, 1), std::pair(3, 200)}) {
    const Image image = colourful(width, height);
    writeFrameFile(folder / "a.jpg", best.encode(image));
    const Image back = readImage(folder / "a.jpg");
    ASSERT_EQ(back.width, width);
    ASSERT_EQ(back.height, height);
    EXPECT_LT(meanDifference(image, back), 3) << width << " x " << height;
  }
  const Image image = colourful(160, 120);
  JpegEncoder worst(31);
  EXPECT_LT(worst.encode(image).size() * 3, best.encode(image).size() * 2);
}

TEST(JpegEncoder, SaysWhatCannotBeWritten) {
  const TempFolder folder;
  JpegEncoder encoder(2);
  EXPECT_THAT(test::thrownText([&] {
                encoder.encode(Image{70000, 1, std::vector<uint8_t>(210000)});
              }),
              testing::StartsWith("A picture of 70000 x 1 pixels cannot be written as JPEG: "));
  EXPECT_THROW(writeFrameFile(folder / "none/a.jpg", encoder.encode(colourful(8, 8))), IngestError);
}

}  // namespace
}  // namespace quor
