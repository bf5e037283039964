#include "ui/models/project/results.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "gs/files/eval_report.h"
#include "gs/files/ply.h"
#include "gs/files/splat_file.h"
#include "support/small_checkpoint.h"
#include "support/temp_folder.h"
#include "ui/models/number_text.h"
#include "ui/pump.h"

namespace quor::ui {
namespace {

namespace fs = std::filesystem;
using test::pump;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

class ResultsTest : public ::testing::Test {
 protected:
  ResultsTest() {
    project_.root = folder_ / "Garden_ombrelux";
    project_.ensureLayout();
    set_.resize(2);
    set_.rotations[0] = set_.rotations[4] = 1;
    set_.positions = {1, 2, 3, 4, 5, 6};
    gs::writePly(project_.sceneFile(), set_, "test");
  }
  Notice exported(ExportFormat format, const fs::path& target) {
    notices_.clear();
    results_.exportScene(format, target);
    EXPECT_TRUE(pump(results_, [&] { return !results_.exporting(); }));
    EXPECT_EQ(notices_.size(), 1u);
    return notices_.empty() ? Notice() : notices_.front();
  }

  test::TempFolder folder_;
  Project project_;
  gs::GaussianSet set_;
  LogStore log_{100};
  std::vector<Notice> notices_;
  Results results_{{log_, [this](Notice notice) { notices_.push_back(std::move(notice)); }, {}}};
};

TEST_F(ResultsTest, ReadsTheScoresThatTrainingWrites) {
  const fs::path eval = project_.outputFolder() / "eval";
  gs::EvalReport report(eval);
  for (const char* name : {"s01/a \"b\", c.jpg", "s01/plain.jpg", "s01_plain.jpg"}) {
    const Image image{2, 2, std::vector<uint8_t>(12)};
    gs::ImageScores scores;
    scores.ssim = 0.9;
    report.add(name, image, scores, image);
  }
  report.finish();
  const std::vector<ViewScore> scores = readScores(eval);
  ASSERT_EQ(scores.size(), 3u);
  EXPECT_EQ(scores[0].view, "s01/a \"b\", c.jpg");
  EXPECT_DOUBLE_EQ(scores[0].ssim, 0.9);
  for (const ViewScore& score : scores) EXPECT_TRUE(fs::exists(score.picture)) << score.picture;
  EXPECT_NE(scores[1].picture, scores[2].picture);

  results_.show(readProjectFacts(project_));
  EXPECT_THAT(results_.scoreLine(), HasSubstr("0.900 SSIM over 3 pictures kept back from training"));
  results_.selected = 2;
  for (const char* damaged : {"view,psnr,ssim,l1\na,30,x,0\n", "view,psnr,ssim,l1\n\"a", ""}) {
    test::writeFile(eval / "scores.csv", damaged);
    EXPECT_THAT(readScores(eval), IsEmpty());
  }
  results_.show(readProjectFacts(project_));
  EXPECT_EQ(results_.scoreLine(), "");
  EXPECT_FALSE(results_.selected);  // there is no such picture any more
}

TEST_F(ResultsTest, SavesTheSceneElsewhereInBothFormats) {
  EXPECT_FALSE(results_.exportButton(ExportFormat::Ply).enabled);
  results_.show(readProjectFacts(project_));
  EXPECT_EQ(exported(ExportFormat::Ply, folder_ / "out").title, "Scene saved");
  EXPECT_EQ(test::readFile(folder_ / "out.ply"), test::readFile(project_.sceneFile()));
  EXPECT_EQ(exported(ExportFormat::Splat, folder_ / "out.SPLAT").title, "Scene saved");
  gs::writeSplat(folder_ / "expected.splat", set_);
  EXPECT_EQ(test::readFile(folder_ / "out.SPLAT"), test::readFile(folder_ / "expected.splat"));

  const std::string before = test::readFile(project_.sceneFile());
  EXPECT_THAT(exported(ExportFormat::Ply, project_.sceneFile()).lines[0], HasSubstr("is the open scene itself"));
  EXPECT_TRUE(exported(ExportFormat::Ply, folder_ / "no such folder/x.ply").isError);
  EXPECT_EQ(test::readFile(project_.sceneFile()), before);
}

TEST_F(ResultsTest, ACheckpointThatIsLookedAtCanBeSavedAsAScene) {
  test::writeSmallCheckpoint(project_.checkpointFile(), 10);
  results_.show(readSceneFacts(project_.checkpointFile()));
  EXPECT_EQ(results_.suggestedName(ExportFormat::Ply), "checkpoint.ply");
  EXPECT_EQ(exported(ExportFormat::Ply, folder_ / "c.ply").title, "Scene saved");
  EXPECT_EQ(gs::readPly(folder_ / "c.ply").count, 1u);
}

TEST(Words, RoundingNeverShowsAThousandOrAnHourInTheSmallerUnit) {
  EXPECT_EQ(sizeText(999960), "1.0 MB");
  EXPECT_EQ(timeLeftText(59.6 * 60), "about 1 h left");
  for (const double unknown : {-1.0, std::nan(""), 1e9}) EXPECT_EQ(timeLeftText(unknown), "");
}

}  // namespace
}  // namespace quor::ui
