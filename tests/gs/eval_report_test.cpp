#include "gs/files/eval_report.h"

#include <gmock/gmock.h>

#include "base/files/paths.h"
#include "support/temp_folder.h"

namespace quor::gs {
namespace {

namespace fs = std::filesystem;
using test::readFile;
using test::thrownText;
using test::writeFile;

std::vector<std::string> filesIn(const fs::path& folder) {
  std::vector<std::string> names;
  for (const auto& entry : fs::directory_iterator(folder)) names.push_back(toUtf8(entry.path().filename()));
  return names;
}

Image flat(int width, int height, uint8_t value) {
  return {width, height, std::vector<uint8_t>(static_cast<size_t>(width * height * 3), value)};
}

// A light photograph and a dark render.
void addView(EvalReport& report, const std::string& name, const ImageScores& scores = {}) {
  report.add(name, flat(4, 3, 200), scores, flat(4, 3, 10));
}

TEST(EvalReport, PicturesHaveNamesThatEveryFileSystemTakes) {
  std::set<std::string> taken;
  const std::vector<std::pair<std::string, std::string>> cases = {{"DSC_001.JPG", "DSC_001"},
                                                                  {"dsc_001.png", "dsc_001_2"},
                                                                  {"left/a.jpg", "left_a"},
                                                                  {"left_a.jpg", "left_a_2"},
                                                                  {"a\\b:c*?\"<>|\n.jpg", "a_b_c_______"},
                                                                  {"../../etc/x", "_.._.._etc_x"},
                                                                  {"", "_"},
                                                                  {"NUL.tif", "_NUL"},
                                                                  {"写真/é.jpg", "写真_é"}};
  for (const auto& [name, expected] : cases) EXPECT_EQ(pictureName(name, taken), expected) << name;

  std::string longName;
  for (int i = 0; i < 150; ++i) longName += "写";
  const std::string first = pictureName(longName + "1.jpg", taken), second = pictureName(longName + "2.jpg", taken);
  EXPECT_EQ(first, longName.substr(0, 198)) << "whole characters";
  EXPECT_EQ(second, first + "_2");
}

TEST(EvalReport, HoldsEveryViewAndNothingOfAnEarlierRun) {
  const test::TempFolder temp;
  const fs::path folder = temp / "output/eval";
  writeFile(folder / "old.png", "");
  writeFile(folder / "scores.csv", "old");
  writeFile(folder / "notes.txt", "the user's own");
  removeEvalReport(folder);
  EXPECT_THAT(filesIn(folder), testing::ElementsAre("notes.txt"));

  EvalReport report(folder);
  addView(report, "a/b.jpg", {0.125, 0.01, 0.5});
  addView(report, "say \"x\", y.jpg", {0, 0, 1});
  for (int i = 0; i < 20; ++i) addView(report, std::to_string(i));
  report.finish();
  const std::string scores = readFile(folder / "scores.csv");
  EXPECT_THAT(scores, testing::StartsWith("view,psnr,ssim,l1\na/b.jpg,20.0000,0.500000,0.125000\n"
                                          "\"say \"\"x\"\", y.jpg\",100.0000,1.000000,0.000000\n"));
  EXPECT_EQ(std::count(scores.begin(), scores.end(), '\n'), 23);
  EXPECT_EQ(filesIn(folder).size(), 22u + 2u);
  const Image both = readImage(folder / "a_b.png");
  EXPECT_EQ(std::pair(both.width, both.height), std::pair(8, 3));
  EXPECT_EQ(both.rgb[11 + 24], 200);
  EXPECT_EQ(both.rgb[12 + 24], 10);

  removeEvalReport(folder / "none");
  removeEvalReport(folder / "notes.txt");
  EXPECT_TRUE(fs::exists(folder / "notes.txt"));
}

TEST(EvalReport, SaysAtItsEndThatItCouldNotBeWritten) {
  const test::TempFolder temp;
  writeFile(temp / "file", "");
  EvalReport nowhere(temp / "file/eval");
  for (int i = 0; i < 40; ++i) addView(nowhere, std::to_string(i));
  EXPECT_THAT(thrownText([&] { nowhere.finish(); }), testing::StartsWith("Cannot write " + toUtf8(temp / "file/eval")));

  // One picture cannot be written: the scores still are.
  fs::create_directories(temp / "eval/1.png/in the way");
  EvalReport part(temp / "eval");
  for (int i = 0; i < 3; ++i) addView(part, std::to_string(i));
  EXPECT_THAT(thrownText([&] { part.finish(); }), testing::StartsWith("Cannot write "));
  EXPECT_TRUE(fs::exists(temp / "eval/scores.csv"));
}

}  // namespace
}  // namespace quor::gs
