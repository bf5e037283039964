// What needs a full disk, or another ffmpeg program than the installed one.
#include <gmock/gmock.h>

#include "ingest/extraction.h"
#include "ingest/frame_extractor.h"
#include "support/file_size_limit.h"
#include "support/scripts.h"

namespace quor {
namespace {

using test::makeClip;
using test::readFile;
using test::TempFolder;
using test::TestExtraction;
using test::writeFile;
using testing::HasSubstr;
using testing::StartsWith;

TEST(Video, SaysThatTheDiskIsFull) {
  TestExtraction full;
  const auto clip = makeClip(full.folder / "a.mp4", std::string("testsrc=size=64x48:rate=10:duration=2"));
  const std::string failure = [&] {
    const test::FileSizeLimit limit(500);
    return full.failure(clip);
  }();
  EXPECT_THAT(failure, StartsWith("Writing " + toUtf8(full.folder / "frames/f0")));
  EXPECT_THAT(failure, testing::EndsWith(" failed (disk full?)"));
}

// Two clips of different size in one stream: the libraries' graph cannot follow, the program can.
TEST(Video, IsLeftToFfmpegWhereTheLibrariesFail) {
  TestExtraction extraction;
  const TempFolder& folder = extraction.folder;
  makeClip(folder / "1.ts", std::string("testsrc=size=64x48:rate=10:duration=1"));
  makeClip(folder / "2.ts",
           {"-f", "lavfi", "-i", "testsrc=size=96x48:rate=10:duration=1", "-output_ts_offset", "1", "-c:v", "libx264"});
  const auto clip = writeFile(folder / "50% a.ts", readFile(folder / "1.ts") + readFile(folder / "2.ts"));
  extraction.ffmpeg = ToolLocation{test::writeScript(folder / "ffmpeg", "exec ffmpeg \"$@\"\n"), "settings"};
  extraction.settings.targetFrameCount = 8;
  FrameExtractor extractor(extraction.log, extraction.ffmpeg, nullptr);
  const ExtractionResult result =
      extractor.extract(clip, InputKind::Video, extraction.settings, folder / "100%d frames", nullptr);
  EXPECT_NEAR(static_cast<double>(result.frames.size()), 8, 2);
  EXPECT_THAT(extraction.logged(), HasSubstr("In-process decoding failed (the picture changes its size"));
  for (const auto& frame : result.frames) EXPECT_EQ(readImageSize(frame).height, 48);
}

TEST(Video, RelaysWhatFfmpegSays) {
  TestExtraction extraction;
  const auto garbage = writeFile(extraction.folder / "garbage.mp4", std::string(5000, 'x'));
  const auto script = extraction.folder / "ffmpeg";
  extraction.ffmpeg = ToolLocation{script, "settings"};
  EXPECT_THAT(extraction.failure(garbage), StartsWith("Could not run ffmpeg: "));

  std::vector<std::string> reports;
  extraction.progress = [&](const std::string& message, float) { reports.push_back(message); };
  test::writeScript(script, "echo 'frame=  7 fps=3'; echo progress=end; echo Conversion failed! >&2; exit 3\n");
  EXPECT_THAT(extraction.failure(garbage), StartsWith("ffmpeg failed (exit 3): Conversion failed!"));
  EXPECT_EQ(reports, std::vector<std::string>{"Extracting frame 7"});
  test::writeScript(script, "exit 0\n");
  EXPECT_EQ(extraction.failure(garbage), "Frame extraction produced no images.");
}

}  // namespace
}  // namespace quor
