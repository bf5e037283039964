// Which pairs of images a solve matches.
#include "sfm/match/image_similarity.h"
#include "sfm/match/pair_selection.h"
#include "sfm/refine/rig.h"
#include "solve_fixture.h"
#include "support/feature_database.h"

namespace quor::test {
namespace {

using ::testing::AnyOf;
using ::testing::HasSubstr;

class PairSelection : public SolveTest {
 protected:
  PairSelection() : files(project), colmap(folder / "colmap", log, [] { return false; }) {
    project.sparse.pairs = PairChoice::Likely;
    std::filesystem::create_directories(files.lists);
  }

  std::set<ImagePair> select(Matcher matcher, size_t images) {
    ColmapOutput output(log, files.log);
    SolveProgress progress([](const std::string&, float, int) {});
    const std::vector<ImagePair> pairs =
        selectPairs({project, files, colmap, output, log, progress, images, nullptr, {}}, matcher);
    return {pairs.begin(), pairs.end()};
  }

  const ColmapWorkspace files;
  ColmapProgram colmap;
};

TEST_F(PairSelection, OfManyPhotographsThoseThatLookAlikeOrWereTakenNearby) {
  constexpr uint32_t kPlaces = 20, kOfAPlace = 8, kImages = kPlaces * kOfAPlace;
  FeatureDatabase database(files.database);
  database.execute("BEGIN");
  for (uint32_t i = 0; i < kImages; ++i) {
    // Places take turns, so that the order of the names says nothing; each photograph shows half of its place.
    const uint32_t place = i % kPlaces;
    const Descriptors seen = similarDescriptors(randomDescriptors(60, place), i, 30, 12, i);
    database.addImage(i + 1, "p" + std::to_string(1000 + i) + ".jpg", seen);
  }
  database.execute("COMMIT");
  project.extraction.positions["p1000.jpg"] = {48, 11, 500};
  project.extraction.positions["p1009.jpg"] = {48.00001, 11, 500};
  project.extraction.positions["p1100.jpg"] = {48.1, 11, 500};
  const std::set<ImagePair> pairs = select(Matcher::Exhaustive, kImages);
  size_t siblings = 0;
  for (uint32_t a = 1; a <= kImages; ++a) {
    for (uint32_t b = a + kPlaces; b <= kImages; b += kPlaces) siblings += pairs.contains({a, b}) ? 1 : 0;
  }
  EXPECT_EQ(siblings, kPlaces * kOfAPlace * (kOfAPlace - 1) / 2);
  EXPECT_TRUE(pairs.contains({1, 10})) << "taken nearby";
  EXPECT_TRUE(pairs.contains({5, 6})) << "taken one after the other";
  EXPECT_LT(pairs.size(), kImages * (kImages - 1) / 2 / 2);
  EXPECT_THAT(logText(), HasSubstr("Of 160 photographs those that look alike are matched"));

  EXPECT_EQ(select(Matcher::Exhaustive, 150).size(), kImages * (kImages - 1) / 2) << "few are all compared";
  project.sparse.pairs = PairChoice::All;
  EXPECT_EQ(select(Matcher::Exhaustive, kImages).size(), kImages * (kImages - 1) / 2);
}

TEST_F(PairSelection, OfASphereTheViewsThatSeeTheSame) {
  constexpr uint32_t kMoments = 5, kViews = 6;
  FeatureDatabase database(files.database);
  ImageGroup group{"views", {}, "PINHOLE", {1, 1, 1, 1}};
  for (uint32_t view = 0; view < kViews; ++view) {
    const double half = view * std::numbers::pi / kViews;  // turned by 60 degrees each
    group.rig.push_back({"_v0" + std::to_string(view), std::array{std::cos(half), 0.0, std::sin(half), 0.0}});
  }
  for (uint32_t moment = 0; moment < kMoments; ++moment) {
    for (uint32_t view = 0; view < kViews; ++view) {
      const std::string name = "f" + std::to_string(moment) + "_v0" + std::to_string(view) + ".jpg";
      database.addImage(moment * kViews + view + 1, name);
      group.images.push_back(name);
    }
  }
  project.extraction.groups = {group};
  std::map<uint32_t, size_t> apart;
  for (const auto& [a, b] : select(Matcher::Sequential, kMoments * kViews)) {
    const uint32_t first = (a - 1) / kViews, second = (b - 1) / kViews;
    ASSERT_NE(first, second);
    ++apart[second - first];
    EXPECT_THAT((b - a) % kViews, AnyOf(0u, 1u, kViews - 1)) << a << " " << b;
  }
  for (uint32_t step = 1; step < kMoments; ++step) EXPECT_EQ(apart[step], (kMoments - step) * kViews * 3) << step;

  project.extraction.groups[0].rig = {{"_v00", {}}, {"_v01", {}}};  // lenses whose places are not known yet
  EXPECT_TRUE(select(Matcher::Sequential, kMoments * kViews).contains({1, 2}));
}

}  // namespace
}  // namespace quor::test
