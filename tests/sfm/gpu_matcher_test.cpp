#include "sfm/match/gpu_matcher.h"

#include <gmock/gmock.h>

#include "sfm/match/colmap_database.h"
#include "support/feature_database.h"
#include "support/gpu_fixture.h"
#include "support/temp_folder.h"

namespace quor {
namespace {

using test::FeatureDatabase;
using test::thrownText;

class GpuMatcherTest : public gs::GpuTest {
 protected:
  GpuMatcherTest() {
    database.addImage(7, "a.jpg", base);
    database.addImage(3, "b.jpg", test::similarDescriptors(base, 10, 70, 15, 2));
    database.addImage(5, "c.jpg", test::similarDescriptors(base, 30, 50, 15, 3));
    database.addImage(9, "none.jpg");
  }

  MatchSummary match(const std::function<bool()>& cancelled = [] { return false; }) {
    const auto progress = [this](const std::string& message, float fraction) {
      if (messages.empty() || messages.back() != message) messages.push_back(message);
      EXPECT_TRUE(fraction >= 0 && fraction <= 1);
    };
    return matchOnGpu(context, path, exhaustivePairs(ColmapDatabase(path).images()), {}, progress, cancelled);
  }
  int64_t rows() { return database.number("SELECT COUNT(*) FROM matches"); }

  test::TempFolder folder;
  const std::filesystem::path path = folder / "database.db";
  FeatureDatabase database{path};
  const test::Descriptors base = test::randomDescriptors(80, 1);
  std::vector<std::string> messages;
};

TEST_F(GpuMatcherTest, EveryPairGetsARowForTheSmallerIdFirst) {
  EXPECT_EQ(pairId(7, 3), 6442450948);
  EXPECT_EQ(pairId(4000000000u, 2), 2ll * 2147483647 + 4000000000ll);

  const MatchSummary summary = match();
  EXPECT_EQ(rows(), 6);
  EXPECT_EQ(database.number("SELECT COUNT(*) FROM matches WHERE cols = 2 AND length(data) = rows * 8"), 6);
  const std::vector<uint32_t> found = database.matches(6442450948);
  ASSERT_EQ(found.size(), 140u);  // image 3's features are those from 10 on of image 7
  for (uint32_t i = 0; i < 70; ++i) {
    EXPECT_EQ(found[2 * i], i);
    EXPECT_EQ(found[2 * i + 1], i + 10);
  }
  EXPECT_EQ(database.number("SELECT rows FROM matches WHERE pair_id = " + std::to_string(pairId(7, 9))), 0);

  EXPECT_EQ(summary.matched, (std::vector<ImagePair>{{3, 5}, {3, 7}, {5, 7}}));
  EXPECT_EQ(summary.matches, 170u);
  EXPECT_EQ(summary.handedBack, "");
  EXPECT_THAT(describe(summary), testing::AllOf(testing::StartsWith("GPU matching: 6 pairs in "),
                                                testing::EndsWith(" s (3 with matches, 170 matches)")));
  EXPECT_THAT(messages, testing::ElementsAre("Reading features", "Matching on the GPU (6 pairs, 1 chunks)"));
  match();  // replaces
  EXPECT_EQ(rows(), 6);
}

TEST_F(GpuMatcherTest, OtherFeaturesAreHandedBack) {
  database.addImage(11, "d.jpg", test::Descriptors(4 * 64, 1), 64);
  EXPECT_EQ(match().handedBack,
            "The features are not 128-byte SIFT descriptors (64 columns, 256 bytes for d.jpg), so COLMAP matches them "
            "itself.");
  database.execute("UPDATE descriptors SET rows = -2, cols = 128, data = zeroblob(255) WHERE image_id = 11");
  EXPECT_THAT(match().handedBack, testing::HasSubstr("255 bytes for d.jpg"));
  EXPECT_EQ(rows(), 0);
}

TEST_F(GpuMatcherTest, AFailureLeavesTheTablesAsTheyWere) {
  EXPECT_EQ(thrownText([&] { ColmapDatabase(folder / "missing.db"); }), "Cannot open the COLMAP database");
  EXPECT_FALSE(std::filesystem::exists(folder / "missing.db"));
  const auto text = test::writeFile(folder / "text.db", std::string(5000, 'x'));
  EXPECT_EQ(thrownText([&] { ColmapDatabase(text).images(); }), "COLMAP database: file is not a database");

  database.execute(
      "CREATE TRIGGER full BEFORE INSERT ON matches WHEN (SELECT COUNT(*) FROM matches) >= 3 BEGIN SELECT "
      "RAISE(ABORT, 'no room'); END");
  EXPECT_EQ(thrownText([&] { match(); }), "COLMAP database: no room");
  EXPECT_EQ(rows(), 0);
}

TEST_F(GpuMatcherTest, CancellingLeavesTheTablesAsTheyWere) {
  int asked = 0;
  match([&] { return ++asked < 0; });
  database.execute("DELETE FROM matches");
  for (int last = 1; last <= asked; ++last) {
    int now = 0;
    EXPECT_EQ(thrownText([&] { match([&] { return ++now == last; }); }), "Cancelled");
    EXPECT_EQ(rows(), 0) << last;
  }
}

}  // namespace
}  // namespace quor
