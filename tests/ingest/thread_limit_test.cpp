// A system that grants no further thread makes the frame stage slower and nothing else.
#include "support/thread_limit.h"

#include "ingest/extraction.h"
#include "ingest/frame_writer.h"
#include "ingest/sharpness.h"
#include "picture_files.h"

namespace quor::test {
namespace {

class FrameStage : public testing::TestWithParam<int> {
 protected:
  void SetUp() override { SKIP_WITHOUT_THREAD_LIMIT(); }
  std::vector<std::filesystem::path> paths() const {
    std::vector<std::filesystem::path> paths;
    for (int i = 0; i < 20; ++i) paths.push_back(folder_ / "in" / ("f" + std::to_string(10 + i) + ".jpg"));
    return paths;
  }

  const TempFolder folder_;
};

TEST_P(FrameStage, WritesScoresAndImportsWithFewThreads) {
  std::filesystem::create_directories(folder_ / "in");
  const ThreadLimit limit(GetParam());
  FrameWriter writer(2);
  for (const auto& path : paths()) {
    FramePtr frame = blankFrame(16, 16, AV_PIX_FMT_YUVJ420P);
    for (int plane = 0; plane < 3; ++plane) {
      std::memset(frame->data[plane], 128, static_cast<size_t>(frame->linesize[plane]) * (plane ? 8 : 16));
    }
    writer.write(path, std::move(frame));
  }
  writer.finish();

  size_t scored = 0;
  EXPECT_EQ(rejectBlurry(paths(), 0.5, 0.4, [&](size_t count) { scored = count; }).kept, paths());
  EXPECT_GT(scored, 0u);

  LogStore log(100);
  FrameExtractor extractor(log, {}, nullptr);
  EXPECT_EQ(extractor.extract(folder_ / "in", InputKind::Images, {}, folder_ / "out", nullptr).frames.size(), 20u);
}
INSTANTIATE_TEST_SUITE_P(Granted, FrameStage, testing::Values(0, 1, 2));

}  // namespace
}  // namespace quor::test
