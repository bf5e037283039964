#include <gmock/gmock.h>

#include "ingest/extraction.h"
#include "ingest/frame_extractor.h"

namespace quor {
namespace {

using test::colourAt;
using test::makeClip;
using test::readFile;
using test::TempFolder;
using test::TestExtraction;
using test::writeFile;
using testing::HasSubstr;
using testing::StartsWith;

constexpr const char* kTestPicture = "testsrc=size=64x48:rate=10:duration=2";

TEST(Video, IsSampledEvenlyIntoNumberedFrames) {
  TestExtraction extraction;
  extraction.settings.targetFrameCount = 5;
  extraction.settings.maxDimension = 33;
  std::vector<std::pair<std::string, float>> reports;
  extraction.progress = [&](const std::string& message, float fraction) { reports.emplace_back(message, fraction); };
  // Frame t is grey of the value 20 t, in BT.601 and full range after decoding.
  const auto clip = makeClip(extraction.folder / "-it's 100%d: 写 é.mp4",
                             std::string("color=black:size=64x48:rate=10:duration=1,geq=lum='16+20*N':cb=128:cr=128"));
  const ExtractionResult result = extraction.run(clip);
  ASSERT_EQ(result.frames.size(), 5u);
  for (size_t i = 0; i < 5; ++i) {
    EXPECT_EQ(result.frames[i], extraction.folder / "frames" / ("f0000" + std::to_string(i + 1) + ".jpg"));
    const Image image = readImage(result.frames[i]);
    EXPECT_EQ(image.width, 32);
    EXPECT_EQ(image.height, 24);
    EXPECT_NEAR(colourAt(image, 16, 12).green, 20.0 * 255 / 219 * (2.0 * static_cast<double>(i) + 0.5), 15);
  }
  ASSERT_EQ(result.groups.size(), 1u);
  EXPECT_EQ(result.groups[0].images.size(), 5u);
  EXPECT_EQ(result.groups[0].cameraModel, "");
  ASSERT_EQ(reports.size(), 5u);
  EXPECT_EQ(reports[2].first, "Extracting frame 3");
  EXPECT_LT(reports[2].second, reports[3].second);
  EXPECT_THAT(extraction.logged(), HasSubstr("Sampling 5.00 fps -> ~5 frames\nExtracted 5 frames @ 5.00 fps\n"));
}

// What is left undecoded on the way changes nothing: B frames, sampled far apart, at a rate that fits no frame.
TEST(Video, SamplesTheFramesThatFfmpegDoes) {
  TestExtraction extraction;
  extraction.settings.targetFrameCount = 9;
  extraction.settings.blurRejection = false;
  const auto clip =
      makeClip(extraction.folder / "a.mp4",
               {"-f", "lavfi", "-i", "color=black:size=64x48:rate=25:duration=4,geq=lum='16+2*N':cb=128:cr=128", "-c:v",
                "libx264", "-bf", "3", "-b_strategy", "0", "-crf", "4"});
  const ExtractionResult result = extraction.run(clip);
  makeClip(extraction.folder / "%02d.png", {"-i", "file:" + toUtf8(clip), "-vf", "fps=2.25"});
  ASSERT_EQ(result.frames.size(), 9u);
  EXPECT_FALSE(std::filesystem::exists(extraction.folder / "10.png"));
  for (size_t i = 0; i < 9; ++i) {
    const auto expected = extraction.folder / ("0" + std::to_string(i + 1) + ".png");
    EXPECT_LT(test::meanDifference(readImage(result.frames[i]), readImage(expected)), 1.1) << i;
  }
}

// The colour that went in comes out, whatever matrix, range, depth and odd size the video has.
TEST(Video, KeepsColours) {
  struct Case {
    const char* size;
    std::vector<std::string> options;
  };
  const Case cases[] = {{"64x48", {"-vf", "scale=out_color_matrix=bt601,format=yuv420p"}},
                        {"64x48",
                         {"-vf", "scale=out_color_matrix=bt709:out_range=pc,format=yuv420p", "-colorspace", "bt709",
                          "-color_range", "pc"}},
                        {"64x48", {"-vf", "scale=out_color_matrix=bt2020,format=yuv420p10", "-colorspace", "bt2020nc"}},
                        {"51x37", {"-vf", "format=yuv444p,scale=out_color_matrix=bt709", "-colorspace", "bt709"}}};
  for (const Case& c : cases) {
    TestExtraction extraction;
    std::vector<std::string> arguments = {"-f", "lavfi", "-i",
                                          std::string("color=0xD05028:rate=10:duration=0.3:size=") + c.size};
    arguments.insert(arguments.end(), c.options.begin(), c.options.end());
    arguments.insert(arguments.end(), {"-c:v", "libx264", "-crf", "4"});
    const Image image = readImage(extraction.run(makeClip(extraction.folder / "a.mp4", arguments)).frames.at(0));
    const auto colour = colourAt(image, image.width / 2, image.height / 2, 4);
    EXPECT_NEAR(colour.red, 0xD0, 3) << c.options[1];
    EXPECT_NEAR(colour.green, 0x50, 3) << c.options[1];
    EXPECT_NEAR(colour.blue, 0x28, 3) << c.options[1];
  }
}

// The track's display matrix replaced.
std::filesystem::path withMatrix(const std::filesystem::path& clip, int a, int b, int c, int d) {
  std::string bytes = readFile(clip);
  const size_t at = bytes.find("tkhd") + 44;
  const auto put = [&](size_t index, int value) {
    bytes[at + 4 * index + 1] = static_cast<char>(value), bytes[at + 4 * index] = static_cast<char>(value < 0 ? -1 : 0);
  };
  put(0, a), put(1, b), put(3, c), put(4, d);
  return writeFile(clip.parent_path() / "turned.mp4", bytes);
}

TEST(Video, IsTurnedUprightAsFfmpegDoes) {
  const TempFolder folder;
  const auto clip =
      makeClip(folder / "a.mp4",
               std::string("color=black:size=96x64:rate=5:duration=0.4,format=gbrp,geq=r='2*X':g='3*Y':b=128"));
  const int matrices[8][4] = {{1, 0, 0, 1},  {-1, 0, 0, 1}, {1, 0, 0, -1}, {-1, 0, 0, -1},
                              {0, 1, -1, 0}, {0, -1, 1, 0}, {0, 1, 1, 0},  {0, -1, -1, 0}};
  for (const auto& m : matrices) {
    TestExtraction extraction;
    extraction.settings.maxDimension = 48;
    const auto turned = withMatrix(clip, m[0], m[1], m[2], m[3]);
    const Image image = readImage(extraction.run(turned).frames.at(0));
    const bool upright = m[0] != 0;
    const auto expected = makeClip(folder / "expected.png", {"-i", "file:" + toUtf8(turned), "-frames:v", "1", "-vf",
                                                             upright ? "scale=48:32" : "scale=32:48"});
    EXPECT_LT(test::meanDifference(image, readImage(expected)), 6) << m[0] << m[1] << m[2] << m[3];
  }
}

TEST(Video, HasSquarePixels) {
  TestExtraction extraction;
  const auto clip = makeClip(extraction.folder / "a.mkv", std::string(kTestPicture) + ",setsar=3/2");
  const Image image = readImage(extraction.run(clip).frames.at(0));
  EXPECT_EQ(std::pair(image.width, image.height), std::pair(96, 48));
}

TEST(Video, OfOneFrameOrUnevenRateIsTakenAsItIs) {
  TestExtraction one;
  EXPECT_EQ(
      one.run(makeClip(one.folder / "a.mp4", std::string("testsrc=size=64x48:rate=25:duration=0.04"))).frames.size(),
      1u);
  TestExtraction uneven;
  uneven.settings.targetFrameCount = 10;
  uneven.settings.blurRejection = false;
  // The second half of the frames is missing.
  const auto clip =
      makeClip(uneven.folder / "b.mkv", {"-f", "lavfi", "-i", "testsrc=size=64x48:rate=20:duration=4", "-vf",
                                         "select='lt(n,40)+not(mod(n,13))'", "-vsync", "vfr", "-c:v", "libx264"});
  EXPECT_NEAR(static_cast<double>(uneven.run(clip).frames.size()), 10, 1);
}

TEST(Video, ThatCannotBeReadIsExplained) {
  TestExtraction extraction;
  const TempFolder& folder = extraction.folder;
  std::filesystem::create_directory(folder / "folder.mp4");
  EXPECT_EQ(extraction.failure(folder / "none.mp4"),
            "There is no file " + toUtf8(folder / "none.mp4") + ". Check the path.");
  EXPECT_EQ(extraction.failure(folder / "folder.mp4"),
            toUtf8(folder / "folder.mp4") + " is a folder, not a video file.");
  EXPECT_THAT(extraction.failure(writeFile(folder / "empty.mp4", "")), HasSubstr("is empty (0 bytes)"));
  const auto audio = makeClip(folder / "audio.m4a", {"-f", "lavfi", "-i", "sine=duration=0.2"});
  EXPECT_THAT(extraction.failure(audio), HasSubstr("has no video track"));
  EXPECT_EQ(extraction.logged(), "");  // no retry where it cannot help

  const auto garbage = writeFile(folder / "garbage.mp4", std::string(5000, 'x'));
  EXPECT_EQ(extraction.failure(garbage),
            "Video needs ffmpeg, which was not found. Install ffmpeg or set its location in Settings.");
  EXPECT_THAT(extraction.logged(), HasSubstr("In-process decoding failed ("));
  EXPECT_THAT(extraction.failure(garbage, InputKind::DualFisheye), HasSubstr("cannot be opened as a video"));
  EXPECT_EQ(detectVideoKind(garbage), InputKind::Video);

  std::filesystem::remove_all(folder / "frames");
  writeFile(folder / "frames", "in the way");
  EXPECT_THAT(extraction.failure(garbage), StartsWith("Could not create "));
}

TEST(Video, ThatIsCutOffGivesWhatItHas) {
  TestExtraction extraction;
  extraction.settings.targetFrameCount = 20;
  extraction.settings.blurRejection = false;
  const auto whole =
      makeClip(extraction.folder / "a.mp4", {"-f", "lavfi", "-i", "testsrc=size=128x96:rate=10:duration=4", "-c:v",
                                             "libx264", "-g", "5", "-movflags", "faststart"});
  std::string bytes = readFile(whole);
  bytes.resize(bytes.size() * 6 / 10);
  const size_t count = extraction.run(writeFile(extraction.folder / "cut.mp4", bytes)).frames.size();
  EXPECT_GT(count, 8u);
  EXPECT_LT(count, 17u);
  EXPECT_THAT(extraction.logged(), HasSubstr("warning: cut.mp4 is damaged or cut off: "));
}

TEST(Video, StopsAtOnceWhenCancelled) {
  TestExtraction extraction;
  const auto clip = makeClip(extraction.folder / "a.mp4", std::string(kTestPicture));
  bool stop = false;
  extraction.cancelled = [&] { return stop; };
  extraction.progress = [&](const std::string& message, float) { stop = message == "Extracting frame 4"; };
  EXPECT_EQ(extraction.failure(clip), "Cancelled");
}

}  // namespace
}  // namespace quor
