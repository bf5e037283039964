#include "ingest/report/capture_report.h"

#include <gmock/gmock.h>

#include <cmath>

#include "base/failures.h"
#include "base/split_mix64.h"
#include "base/text/text.h"
#include "ingest/photo/image_decoders.h"
#include "picture_files.h"
#include "support/temp_folder.h"

namespace quor::test {
namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

// A window on a large textured wall, from `left` pixels on.
Image wall(int left, double gain = 1, int blur = 0) {
  constexpr int kWidth = 192, kHeight = 128;
  Image image{kWidth, kHeight, {}};
  const auto texture = [](int x, int y) {
    const double large = 40 * std::sin(x * 0.05) + 40 * std::cos(y * 0.07 + x * 0.021);
    return 120 + large + static_cast<double>(SplitMix64(static_cast<uint64_t>(x * 7919 + y)).next() % 60);
  };
  for (int y = 0; y < kHeight; ++y) {
    for (int x = 0; x < kWidth; ++x) {
      double sum = 0;
      for (int d = -blur; d <= blur; ++d) sum += texture(left + x + d, y);
      const double value = gain * sum / (2 * blur + 1);
      image.rgb.insert(image.rgb.end(), 3, static_cast<uint8_t>(std::clamp(value, 0.0, 255.0)));
    }
  }
  return image;
}

class Report : public testing::Test {
 protected:
  void add(const Image& image, const std::string& source = {}) {
    const std::string name = formatText("f%05zu.jpg", result_.frames.size() + 1);
    writeJpeg(folder_ / name, image, 95);
    result_.frames.push_back(folder_ / name);
    if (!source.empty()) result_.sources[name] = source;
    if (result_.groups.empty()) result_.groups.emplace_back();
    result_.groups.back().images.push_back(name);
  }
  std::vector<Finding> findings(InputKind kind) {
    return reportCapture(result_, kind, [] { return false; }).findings;
  }

  TempFolder folder_;
  ExtractionResult result_;
};

TEST_F(Report, ASteadyWalkHasNothingToSay) {
  for (int i = 0; i < 20; ++i) add(wall(12 * i));
  for (const InputKind kind : {InputKind::Images, InputKind::Video, InputKind::Video360}) {
    EXPECT_THAT(findings(kind), IsEmpty());
  }
}

TEST_F(Report, NamesBlurredDarkAndRepeatedPhotographs) {
  for (int i = 0; i < 20; ++i) {
    const std::string name = "DSC_" + std::to_string(100 + i) + ".JPG";
    if (i == 7) {
      add(wall(12 * i, 1, 12), name);
    } else if (i >= 17) {
      add(wall(12 * i, 0.3), name);
    } else {
      add(wall(i == 11 ? 12 * 5 : 12 * i), name);
    }
  }
  result_.groups.back().images.pop_back();
  result_.groups.emplace_back().images = {"f00020.jpg"};
  const std::vector<Finding> found = findings(InputKind::Images);
  ASSERT_EQ(found.size(), 4u);
  EXPECT_EQ(found[0].kind, "blurred");
  EXPECT_THAT(found[0].frames, ElementsAre("DSC_107.JPG"));
  EXPECT_EQ(found[1].kind, "exposure");
  EXPECT_THAT(found[1].frames, ElementsAre("DSC_117.JPG", "DSC_118.JPG", "DSC_119.JPG"));
  EXPECT_EQ(found[2].kind, "duplicates");
  EXPECT_THAT(found[2].frames, ElementsAre("DSC_111.JPG"));
  EXPECT_EQ(found[3].kind, "cameras");
  EXPECT_THAT(found[3].text, AllOf(HasSubstr("2 cameras"), HasSubstr("leave them out: DSC_119.JPG.")));
}

TEST_F(Report, LargeFramesAreMeasuredSmall) {
  const Image large = resizeImage(wall(0), 2400, 1600);
  writeJpeg(folder_ / "large.jpg", large, 95);
  const std::string bytes = readFile(folder_ / "large.jpg");
  const FramePtr small = decodeSmallJpeg(asBytes(bytes), 480);
  EXPECT_EQ(small->width, 600);
  EXPECT_EQ(small->height, 400);
  add(large);
  add(wall(0));
  const CaptureReport report = reportCapture(result_, InputKind::Images, [] { return false; });
  ASSERT_EQ(report.frames.size(), 2u);
  EXPECT_NEAR(report.frames[0].brightness, report.frames[1].brightness, 1.5);
  for (size_t i = 0; i < report.frames[0].thumbnail.size(); ++i) {
    EXPECT_NEAR(report.frames[0].thumbnail[i], report.frames[1].thumbnail[i], 8) << i;
  }
}

TEST_F(Report, FindsTheCutInAVideoAndEndsWhenCancelled) {
  for (int i = 0; i < 20; ++i) add(wall(6 * i + (i < 13 ? 0 : 5000)));
  const std::vector<Finding> found = findings(InputKind::Video);
  ASSERT_EQ(found.size(), 1u);
  EXPECT_EQ(found[0].kind, "jumps");
  EXPECT_THAT(found[0].frames, ElementsAre("f00014.jpg"));
  EXPECT_THROW(reportCapture(result_, InputKind::Video, [] { return true; }), Cancelled);

  writeFile(folder_ / "f00003.jpg", "no picture");
  const CaptureReport report = reportCapture(result_, InputKind::Video, [] { return false; });
  EXPECT_EQ(report.frames.size(), 19u);
  saveCaptureReport(folder_ / "report.json", {report});
  EXPECT_THAT(readFile(folder_ / "report.json"), AllOf(HasSubstr("\"kind\": \"jumps\""), HasSubstr("f00014.jpg")));
}

}  // namespace
}  // namespace quor::test
