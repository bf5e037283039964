#include "ingest/sampling.h"

#include <gtest/gtest.h>

namespace quor {
namespace {

TEST(Sampling, RateFollowsFromWhatIsWantedWithinItsLimits) {
  EXPECT_DOUBLE_EQ(samplingRate(10, 30, 600), 30);  // no more than there are
  EXPECT_DOUBLE_EQ(samplingRate(0, 30, 100), 2);    // unknown duration
  EXPECT_DOUBLE_EQ(samplingRate(3600, 30, 10), 0.05);
  EXPECT_EQ(expectedFrames(0.03, 30), 1);
}

TEST(Sampling, SizesAreLimitedEvenAndNeverLarger) {
  const auto sizeOf = [](int width, int height, int limit) {
    VideoTrack track;
    track.width = width;
    track.height = height;
    const ImageSize size = frameSize(track, limit);
    return std::pair(size.width, size.height);
  };
  EXPECT_EQ(sizeOf(3840, 2160, 1920), std::pair(1920, 1080));
  EXPECT_EQ(sizeOf(641, 479, 0), std::pair(641, 479));
  EXPECT_EQ(sizeOf(1000, 777, 501), std::pair(500, 388));
  EXPECT_EQ(sizeOf(10000, 10, 100), std::pair(100, 2));
}

}  // namespace
}  // namespace quor
