// The solve's matching step on the GPU, with a fake COLMAP about it.
#include "solve_fixture.h"
#include "support/feature_database.h"
#include "support/gpu_fixture.h"

namespace quor::test {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::StartsWith;

class GpuMatchingStep : public SolveTest {
 protected:
  GpuMatchingStep() {
    addFrames();
    colmap.mapsTo("0", {"a.jpg", "b.jpg", "c.jpg"});
    colmap.on("feature_extractor", "cp \"$here/features.db\" \"$database\"; echo 'Processed file [4/4]'");
    colmap.on("matches_importer", "echo 'Matching block [1/1]'");
    features.addImage(1, "a.jpg", base);
    features.addImage(2, "b.jpg", similarDescriptors(base, 0, 70, 10, 2));
    features.addImage(3, "c.jpg");
  }

  // As if COLMAP had verified a pair.
  void verified(int64_t pair = 2147483649) {
    features.execute("INSERT OR REPLACE INTO two_view_geometries VALUES (" + std::to_string(pair) +
                     ", 20, 2, NULL, 2)");
  }
  void solveAgain() {
    reached = 0;
    solveOnGpu();
  }
  size_t calls(const std::string& command) const {
    const std::string text = colmap.call(command);
    return static_cast<size_t>(std::ranges::count(text, '\n'));
  }

  void solveOnGpu() {
    ColmapRunner runner(
        colmap.location(), log, [this] { return cancelled.load(); }, &gs::GpuTestDevice::plain().context);
    runner.run(project, [this](const std::string& message, float fraction, int) {
      if (messages.empty() || messages.back() != message) messages.push_back(message);
      if (message == cancelAt) cancelled = true;
      EXPECT_GE(fraction, reached) << message;
      reached = fraction;
    });
  }

  // That COLMAP has matched, with nothing of an attempt on the GPU in its database.
  void expectFallback(const std::string& reason) {
    solveOnGpu();
    EXPECT_THAT(colmap.call("exhaustive_matcher"), Not(IsEmpty()));
    EXPECT_THAT(logText(), HasSubstr(reason));
    FeatureDatabase left(project.colmapFolder() / "database.db", FeatureDatabase::Open);
    EXPECT_EQ(left.number("SELECT (SELECT COUNT(*) FROM matches) + (SELECT COUNT(*) FROM two_view_geometries)"), 0);
    EXPECT_TRUE(hasDataset());
  }

  static std::string impossible(const std::string& reason) {
    return "warning: GPU matching was not possible (" + reason + ") — COLMAP matches instead.\n";
  }

  FakeColmap colmap{folder / "tool"};
  FeatureDatabase features{folder / "tool" / "features.db"};
  const Descriptors base = randomDescriptors(80, 1);
  std::string cancelAt;
};

TEST_F(GpuMatchingStep, ColmapOnlyVerifies) {
  verified();
  solveOnGpu();
  const std::string root = toUtf8(project.root) + "/colmap/";
  EXPECT_THAT(colmap.call("matches_importer"),
              StartsWith("matches_importer --database_path " + root + "database.db --match_list_path " + root +
                         "lists/gpu_pairs.txt --match_type pairs --SiftMatching.use_gpu 0 "));
  EXPECT_EQ(colmap.call("exhaustive_matcher"), "");
  EXPECT_EQ(readFile(project.colmapFolder() / "lists/gpu_pairs.txt"), "a.jpg b.jpg\n");
  FeatureDatabase left(project.colmapFolder() / "database.db", FeatureDatabase::Open);
  EXPECT_EQ(left.number("SELECT rows FROM matches WHERE pair_id = 2147483649"), 70);
  EXPECT_THAT(messages, ElementsAre("Extracting features (4 images)", "Reading features",
                                    "Matching on the GPU (3 pairs, 1 chunks)", "Verifying matches", "Solving cameras",
                                    "Undistorting images"));
  EXPECT_THAT(logText(), HasSubstr("Matching 3 image pairs on the GPU (Vulkan, "));
  EXPECT_THAT(logText(), HasSubstr("(1 with matches, 70 matches)\n"));
}

TEST_F(GpuMatchingStep, SolvingAgainRunsOnlyWhatHasChanged) {
  colmap.mapsTo("0", {"a.jpg", "c.jpg"});
  for (const std::string& frame : frames) {  // pictures that differ
    std::ofstream(project.framesFolder() / frame, std::ios::app | std::ios::binary) << frame;
  }
  features.addImage(4, "d.jpg", similarDescriptors(base, 0, 60, 10, 3));
  colmap.on("matches_importer", "cp \"$list\" \"$here/verified\"");
  features.execute(
      "INSERT INTO two_view_geometries SELECT 2147483647 * a + b, 0, 2, NULL, 0 FROM "
      "(SELECT 1 AS a, 2 AS b UNION SELECT 1, 4 UNION SELECT 2, 4)");
  verified(int64_t{2147483647} + 4);
  solveOnGpu();
  solveAgain();
  EXPECT_EQ(calls("feature_extractor") + calls("matches_importer"), 2u) << "nothing has changed";
  EXPECT_THAT(logText(), HasSubstr("Features of 4 of 4 images are those of the earlier solve."));
  EXPECT_THAT(logText(), HasSubstr("The matches of 6 image pairs are those of the earlier solve."));

  // A picture that comes in before others gives them new numbers; one is gone, and another's matches with it.
  std::filesystem::rename(project.framesFolder() / "d.jpg", project.framesFolder() / "e.jpg");
  std::filesystem::remove(project.framesFolder() / "b.jpg");
  addFrame("d.jpg");
  colmap.on("feature_extractor", "cp \"$list\" \"$here/extracted\"");
  solveAgain();
  EXPECT_EQ(readFile(folder / "tool/extracted"), "d.jpg\n");
  EXPECT_THAT(colmap.call("feature_extractor"), HasSubstr("--ImageReader.existing_camera_id 1 "));
  FeatureDatabase left(project.colmapFolder() / "database.db", FeatureDatabase::Open);
  EXPECT_EQ(left.number("SELECT image_id FROM images WHERE name = 'e.jpg'"), 4);
  EXPECT_EQ(left.number("SELECT COUNT(*) FROM images WHERE name IN ('b.jpg', 'd.jpg')"), 0);
  EXPECT_EQ(left.number("SELECT SUM(pair_id) FROM two_view_geometries"), int64_t{2147483647} + 4);
  EXPECT_EQ(left.number("SELECT COUNT(*) FROM matches"), 3);

  // Other options find other features.
  project.sparse.maxFeatures = 1000;
  colmap.on("feature_extractor", "cp \"$here/features.db\" \"$database\"");
  solveAgain();
  EXPECT_EQ(FeatureDatabase(project.colmapFolder() / "database.db", FeatureDatabase::Open)
                .number("SELECT COUNT(*) FROM images WHERE name = 'b.jpg'"),
            1);
}

TEST_F(GpuMatchingStep, FallsBackOnAFailureHalfWay) {
  verified();
  features.execute(
      "CREATE TRIGGER full BEFORE INSERT ON matches WHEN (SELECT COUNT(*) FROM matches) >= 1 BEGIN SELECT "
      "RAISE(ABORT, 'no room'); END");
  expectFallback(impossible("COLMAP database: no room"));
}

TEST_F(GpuMatchingStep, FallsBackWhenNothingIsVerified) {
  expectFallback(impossible("no image pair shared enough features to verify"));
}

TEST_F(GpuMatchingStep, FallsBackOnNamesThatAListCannotHold) {
  features.addImage(4, "d e.jpg");
  expectFallback(impossible("COLMAP cannot read the image name 'd e.jpg' in a list of pairs"));
}

TEST_F(GpuMatchingStep, IsLeftOutWhereItIsNotAskedForOrNotPossible) {
  project.sparse.gpuMatching = false;
  solveOnGpu();
  project.sparse.gpuMatching = true;
  project.sparse.vocabTreePath = "/tree";
  for (const Matcher matcher : {Matcher::Sequential, Matcher::VocabTree}) {
    project.sparse.matcher = matcher;
    reached = 0;
    solveOnGpu();
  }
  EXPECT_EQ(colmap.call("matches_importer"), "");
  EXPECT_THAT(logText(), Not(HasSubstr("GPU")));
}

TEST_F(GpuMatchingStep, CancellingIsNoFailureToFallBackFrom) {
  for (const char* message : {"Reading features", "Matching on the GPU (3 pairs, 1 chunks)", "Verifying matches"}) {
    cancelAt = message;
    cancelled = false;
    reached = 0;
    EXPECT_EQ(thrownText([&] { solveOnGpu(); }), "Cancelled") << message;
  }
  EXPECT_EQ(colmap.call("exhaustive_matcher"), "");
  EXPECT_THAT(logText(), Not(HasSubstr("not possible")));
}

}  // namespace
}  // namespace quor::test
