// The sample captures as the extraction sees them: what they are, and which of their frames it takes.
#include <gtest/gtest.h>

#include <cmath>

#include "base/image/image.h"
#include "ingest/frame_extractor.h"
#include "sample_capture/options.h"
#include "support/solved_cameras.h"
#include "support/temp_folder.h"

namespace quor {
namespace {

sample::Options smallVideo(sample::Kind kind, const std::filesystem::path& out, int count) {
  sample::Options options;
  options.out = out;
  options.kind = kind;
  options.orbit = {count, sample::pictureSize(kind, 96), 1};
  options.points = 50;
  options.binaryModel = true;
  sample::writeCapture(options);
  return options;
}

double difference(const Image& a, const Image& b) {
  if (a.rgb.size() != b.rgb.size()) return 255;
  double sum = 0;
  for (size_t i = 0; i < a.rgb.size(); ++i) sum += std::abs(a.rgb[i] - b.rgb[i]);
  return sum / static_cast<double>(a.rgb.size());
}

TEST(SampleVideo, IsOfTheKindThatWasAskedFor) {
  for (const auto& [kind, seen, lenses] : {std::tuple(sample::Kind::Video, InputKind::Video, 1),
                                           std::tuple(sample::Kind::Video360, InputKind::Video360, 1),
                                           std::tuple(sample::Kind::DualFisheye, InputKind::DualFisheye, 2)}) {
    const test::TempFolder folder;
    smallVideo(kind, folder.path(), 3);
    EXPECT_EQ(detectVideoKind(folder.path() / sample::mediaOf(kind)), seen);
    const test::TrueVideo truth = test::readTrueVideo(folder / "cameras.csv");
    ASSERT_EQ(truth.lenses.size(), static_cast<size_t>(lenses));
    EXPECT_EQ(truth.lenses.back().size(), 3u);
    EXPECT_EQ(truth.rate, 10);
  }
}

// Each frame is the one whose camera the truth names, in its own colours.
TEST(SampleVideo, IsSampledAtTheFramesThatTheTruthIsTakenFrom) {
  const test::TempFolder folder;
  const sample::Options options = smallVideo(sample::Kind::Video, folder.path(), 12);
  const sample::Scene scene(options.orbit.seed);
  std::vector<Image> rendered;
  for (const sample::PinholeView& view : sample::videoViews(options.orbit)) {
    rendered.push_back(sample::renderView(scene, view, sample::Rays::Video));
  }
  const gs::colmap::Model model = gs::colmap::loadModel(folder / "sparse/0", false);
  for (const int wanted : {12, 6, 4, 3}) {
    LogStore log(100);
    IngestSettings settings;
    settings.targetFrameCount = wanted;
    settings.blurRejection = false;
    const ExtractionResult result =
        FrameExtractor(log, {}, [] {
          return false;
        }).extract(folder / "video.mp4", InputKind::Video, settings, folder / std::to_string(wanted), {});
    ASSERT_EQ(result.frames.size(), static_cast<size_t>(wanted));
    for (size_t i = 0; i < result.frames.size(); ++i) {
      const size_t source = test::sourceFrame(i, 10, wanted / 1.2);
      EXPECT_LT(difference(readImage(result.frames[i]), rendered[source]), 6) << wanted << " " << i;
      EXPECT_GT(difference(readImage(result.frames[i]), rendered[(source + 1) % 12]), 12);
      if (wanted == 12) {
        EXPECT_EQ(result.frames[i].filename(), model.images[i].name);
      }
    }
  }
}

}  // namespace
}  // namespace quor
