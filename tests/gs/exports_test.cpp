// The two smaller outputs of a run: scene.splat and training.log.
#include <gmock/gmock.h>

#include <cmath>
#include <limits>

#include "gs/files/splat_file.h"
#include "gs/train/run_log.h"
#include "support/splats.h"
#include "support/temp_folder.h"

namespace quor::gs {
namespace {

using test::readFile;
using testing::ElementsAre;

struct Record {
  std::array<float, 3> position, scale;
  std::array<uint8_t, 8> bytes;  // colour, opacity, rotation
};

TEST(SplatFile, RecordsComeByImportanceInTheCompactLayout) {
  GaussianSet set;
  set.resize(3);
  set.positions = {1, 2, 3, 4, 5, 6, 7, 8, 9};
  set.scales = {-1, -1, -1, 0, 0.5f, -0.5f, 2, 2, 2};
  set.opacities = {0, 0, -20};  // the largest is all but invisible
  set.shDc = {0, 0, 0, 10, -10, 0.5f, 0, 0, 0};
  set.rotations = {1, 0, 0, 0, 0, 2, 0, -2, 0, 0, 0, 0};
  const test::TempFolder folder;
  const auto path = folder / "scene.splat";
  writeSplat(path, set);
  const std::string file = readFile(path);
  std::array<Record, 3> records;
  ASSERT_EQ(file.size(), sizeof records);
  std::memcpy(&records, file.data(), sizeof records);
  EXPECT_THAT(records[0].position, ElementsAre(4, 5, 6));
  EXPECT_THAT(records[1].position, ElementsAre(1, 2, 3));
  EXPECT_FLOAT_EQ(records[0].scale[1], std::exp(0.5f));
  // Truncated, not rounded: 0.5 of 255 is 127, and sqrt(1/2) * 128 + 128 is 218.5.
  EXPECT_THAT(records[0].bytes, ElementsAre(255, 0, 163, 127, 128, 218, 128, 37));
  EXPECT_THAT(records[1].bytes, ElementsAre(127, 127, 127, 127, 255, 128, 128, 128));
  EXPECT_THAT(records[2].bytes, ElementsAre(127, 127, 127, 0, 128, 128, 128, 128));
}

TEST(SplatFile, BrokenValuesAreWrittenAndAFullDiskIsSaid) {
  const test::TempFolder folder;
  GaussianSet set = test::randomSplats(70000);
  for (size_t i = 0; i < 300; ++i) set.shDc[7 * i] = set.scales[11 * i] = std::numeric_limits<float>::quiet_NaN();
  writeSplat(folder / "a", set);
  EXPECT_EQ(std::filesystem::file_size(folder / "a"), 70000u * 32u);
  std::filesystem::create_symlink("/dev/full", folder / "a.partial");
  EXPECT_EQ(test::thrownText([&] { writeSplat(folder / "a", set); }),
            "Writing " + toUtf8(folder / "a") + " failed (disk full?)");
}

RunLogEntry someRun() {
  RunLogEntry entry;
  entry.title = "garden";
  entry.steps = 500;
  entry.iterations = 7000;
  entry.splats = 12345;
  entry.seconds = 61.25;
  entry.msPerStep = 122.5;
  entry.downscaleLevels = 2;
  entry.shDegree = 3;
  entry.device = "llvmpipe";
  return entry;
}

TEST(RunLog, ABlockHoldsTheLinesThatApply) {
  RunLogEntry entry = someRun();
  entry.result = TrainState::Stopped;
  entry.technique = Technique::Mcmc;
  entry.resumedFrom = 400;
  entry.budget = 20000;
  entry.resolution = 1600;
  entry.evaluation = {27.125f, 0.87654f, 0.03125f, 12};
  entry.scene = "/tmp/a b/scene.ply";
  const std::string full = formatRunLogEntry(entry, 0);
  EXPECT_EQ(full.substr(full.find('\n') + 1),
            "result      Stopped\n"
            "technique   MCMC\n"
            "steps       500 of 7000 (continued from step 400)\n"
            "splats      12345 (budget 20000)\n"
            "duration    61.2 s (122.50 ms/step)\n"
            "resolution  1600, 2 coarse-to-fine levels, SH degree 3\n"
            "held-out    PSNR 27.12 dB, SSIM 0.8765, L1 0.0312 over 12 views\n"
            "device      llvmpipe\n"
            "scene       /tmp/a b/scene.ply\n");
}

TEST(RunLog, RunsAreAppendedAndAFailureIsOnlySaid) {
  const test::TempFolder folder;
  const auto file = folder / "output/training.log";
  EXPECT_TRUE(appendRunLog(file, someRun()));
  EXPECT_TRUE(appendRunLog(file, someRun()));
  const std::string text = readFile(file);
  EXPECT_THAT(text.substr(text.size() / 2 - 9), testing::StartsWith("llvmpipe\n==== "));
  EXPECT_FALSE(appendRunLog(folder.path(), someRun()));
}

}  // namespace
}  // namespace quor::gs
