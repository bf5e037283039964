// The frame stage inside the pipeline: what it leaves behind, whatever happened before.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "base/image/image.h"
#include "pipeline/pipeline.h"
#include "support/fake_trainer.h"
#include "support/temp_folder.h"

namespace quor {
namespace {

namespace fs = std::filesystem;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::StartsWith;

class FrameStageTest : public ::testing::Test {
 protected:
  FrameStageTest() {
    project_.root = folder_ / "p_ombrelux";
    project_.ensureLayout();
  }

  void addPhotos(const std::string& folder, int count, int width, int height) {
    for (int i = 0; i < count; ++i) {
      Image image{width, height, std::vector<uint8_t>(static_cast<size_t>(width * height * 3), 90)};
      fs::create_directories(folder_ / folder);
      writePng(folder_ / folder / ("p" + std::to_string(i) + ".png"), image);
    }
    project_.inputs.push_back({toUtf8(folder_ / folder), InputKind::Images});
  }
  std::string runFrames() {
    pipeline_.open(project_);
    const auto result = pipeline_.start(Stage::Frames, Stage::Frames)->waitFor(std::chrono::minutes(2));
    return result ? result->text : "The stage does not end.";
  }
  std::vector<std::string> files(const fs::path& root) {
    std::vector<std::string> names;
    for (const auto& entry : fs::recursive_directory_iterator(root)) {
      if (entry.is_regular_file()) names.push_back(fs::relative(entry.path(), root).generic_string());
    }
    std::ranges::sort(names);
    return names;
  }

  test::TempFolder folder_;
  Project project_;
  LogStore log_{100};
  test::FakeTrainer trainer_;
  Pipeline pipeline_{trainer_, log_};
};

TEST_F(FrameStageTest, GathersInputsInFoldersOfTheirOwnAndRecordsTheirCameras) {
  addPhotos("a", 2, 40, 30);
  addPhotos("b", 1, 40, 30);
  addPhotos("c", 1, 30, 40);
  ASSERT_EQ(runFrames(), "Done");
  EXPECT_EQ(pipeline_.status(Stage::Frames).message, "4 frames");
  EXPECT_THAT(files(project_.framesFolder()),
              ElementsAre("s01/f00001.jpg", "s01/f00002.jpg", "s02/f00001.jpg", "s03/f00001.jpg"));
  const Project saved = Project::load(project_.root);
  ASSERT_EQ(saved.extraction.groups.size(), 2u);  // one camera took a and b
  EXPECT_THAT(saved.extraction.groups[0].images, ElementsAre("s01/f00001.jpg", "s01/f00002.jpg", "s02/f00001.jpg"));
  EXPECT_THAT(saved.extraction.groups[1].images, ElementsAre("s03/f00001.jpg"));
  EXPECT_THAT(test::readFile(project_.frameReportFile()), HasSubstr("\"name\": \"p1.png\""));

  project_.sparse.singleCamera = false;
  ASSERT_EQ(runFrames(), "Done");
  EXPECT_EQ(Project::load(project_.root).extraction.groups.size(), 3u);
}

TEST_F(FrameStageTest, LeavesNothingOfEarlierFramesAndTheirCameras) {
  test::writeFile(project_.framesFolder() / "s01/f00009.jpg", "old");
  test::writeFile(project_.root / "frames.partial/f00001.jpg", "of a run that was killed");
  test::writeFile(project_.solvedFolder() / "sparse/cameras.bin", "old");
  addPhotos("a", 2, 40, 30);
  ASSERT_EQ(runFrames(), "Done");
  EXPECT_THAT(files(project_.framesFolder()), ElementsAre("f00001.jpg", "f00002.jpg"));
  EXPECT_FALSE(fs::exists(project_.root / "frames.partial"));
  EXPECT_FALSE(fs::exists(project_.solvedFolder()));
}

TEST_F(FrameStageTest, AFailureKeepsTheEarlierFrames) {
  test::writeFile(project_.framesFolder() / "f00001.jpg", "old");
  addPhotos("a", 1, 40, 30);
  project_.inputs.push_back({toUtf8(folder_ / "gone.mp4"), InputKind::Video});
  EXPECT_THAT(runFrames(), StartsWith("The project's input " + toUtf8(folder_ / "gone.mp4") + " is no longer there."));
  test::writeFile(folder_ / "gone.mp4", "no video");
  EXPECT_THAT(runFrames(), HasSubstr("ffmpeg"));  // what no decoder here reads, the program might
  EXPECT_THAT(files(project_.framesFolder()), ElementsAre("f00001.jpg"));
  EXPECT_FALSE(fs::exists(project_.root / "frames.partial"));
}

}  // namespace
}  // namespace quor
