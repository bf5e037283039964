#include "gs/data/seed.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <set>
#include <vector>

namespace quor::gs {
namespace {

struct Points {
  std::vector<float> positions;
  std::vector<uint8_t> colours;

  void add(float x, float y, float z) {
    const auto n = static_cast<uint8_t>(colours.size());
    positions.insert(positions.end(), {x, y, z});
    colours.insert(colours.end(), {n, static_cast<uint8_t>(n + 1), static_cast<uint8_t>(n + 2)});
  }
};

GaussianSet seed(const Points& points, SeedSettings settings, uint64_t randomSeed = 0) {
  SplitMix64 random = SplitMix64::fromSeed(randomSeed);
  return seedFromPoints(points.positions, points.colours, settings, random);
}

SeedSettings exactly(uint64_t count) {
  SeedSettings settings;
  settings.count = count;
  settings.randomWhenSparse = false;
  return settings;
}

Points cloud(size_t count) {
  SplitMix64 random(9);
  Points points;
  for (size_t i = 0; i < count; ++i) {
    const auto x = static_cast<float>(random.normal()), y = static_cast<float>(random.normal());
    points.add(x, y, static_cast<float>(random.normal()));
  }
  return points;
}

bool allFinite(const GaussianSet& set) {
  const auto finite = [](float value) { return std::isfinite(value); };
  bool all = true;
  for (size_t g = 0; g < kGroupCount; ++g) all = all && std::ranges::all_of(set.group(static_cast<Group>(g)), finite);
  return all;
}

// The definition, without a search structure.
std::vector<double> referenceDistances(const Points& points) {
  const std::vector<double> p(points.positions.begin(), points.positions.end());
  std::vector<double> distances;
  for (size_t i = 0; i < p.size(); i += 3) {
    std::vector<double> squares;
    for (size_t j = 0; j < p.size(); j += 3) {
      squares.push_back(std::pow(p[i] - p[j], 2) + std::pow(p[i + 1] - p[j + 1], 2) + std::pow(p[i + 2] - p[j + 2], 2));
    }
    std::sort(squares.begin(), squares.end());  // the first is the point itself
    distances.push_back(std::sqrt((squares[1] + squares[2] + squares[3]) / 3));
  }
  return distances;
}

TEST(Seed, EveryPointBecomesASplatOfItsNeighboursDistance) {
  Points points = cloud(200);
  points.add(100, 0, 0);  // an outlier, whose size the percentile limits
  const GaussianSet set = seed(points, exactly(201));
  ASSERT_EQ(set.positions, points.positions);

  const std::vector<double> distances = referenceDistances(points);
  std::vector<double> sorted = distances;
  std::sort(sorted.begin(), sorted.end());
  const double limit = sorted[180];  // 0.9 * 200
  for (size_t i = 0; i < set.count; ++i) {
    EXPECT_NEAR(set.scales[3 * i + 1], std::log(std::min(distances[i], limit)), 1e-5) << i;
  }
  EXPECT_NEAR(set.opacities[7], std::log(0.1 / 0.9), 1e-6);
  EXPECT_FLOAT_EQ(set.shDc[3 * 5 + 2], (17.0f / 255.0f - 0.5f) / 0.2820948f);
  EXPECT_EQ(set.rotations[4 * 9], 1.0f);
}

TEST(Seed, FewerSplatsAreARandomSubsetWithoutRepeats) {
  const Points points = cloud(150);
  const GaussianSet set = seed(points, exactly(40));
  const std::set<float> all(points.positions.begin(), points.positions.end());
  const std::set<float> chosen(set.positions.begin(), set.positions.end());
  EXPECT_EQ(chosen.size(), 120u);
  EXPECT_TRUE(std::ranges::includes(all, chosen));
  EXPECT_EQ(seed(points, exactly(40)).positions, set.positions);
  EXPECT_NE(seed(points, exactly(40), 1).positions, set.positions);
}

TEST(Seed, FurtherSplatsScatterAroundPoints) {
  Points points;
  for (float x = 0; x < 10; ++x) points.add(x * 100, 0, 0);
  const GaussianSet set = seed(points, exactly(2000));
  EXPECT_TRUE(std::equal(points.positions.begin(), points.positions.end(), set.positions.begin()));
  // Neighbours 100, 100 and 200 away: root of the mean square is 141.4; at the ends it is larger, but limited.
  double squares = 0;
  for (size_t i = 10; i < 2000; ++i) squares += std::pow(set.positions[3 * i + 1], 2);
  EXPECT_NEAR(std::sqrt(squares / 1990), 155, 20);
}

TEST(Seed, DegenerateCloudsGiveFiniteSplats) {
  for (size_t count = 0; count < 5; ++count) {
    const Points points = cloud(count);
    for (const bool random : {false, true}) {
      SeedSettings settings = exactly(25);
      settings.randomWhenSparse = random;
      settings.opacity = random ? 0.0f : 1.0f;
      const GaussianSet set = seed(points, settings);
      EXPECT_EQ(set.count, 25u);
      EXPECT_TRUE(allFinite(set)) << count << random;
    }
  }
  Points same;
  for (int i = 0; i < 500; ++i) same.add(1, 2, 3);
  const GaussianSet set = seed(same, exactly(600));
  EXPECT_TRUE(allFinite(set));
  EXPECT_NEAR(set.scales[0], std::log(std::sqrt(1e-7)), 1e-4);
}

TEST(Seed, FewPointsAreReplacedByRandomOnesWithinTheScene) {
  SeedSettings settings;
  settings.count = 12000;
  settings.centre = {10, 20, 30};
  settings.extent = 2;
  const Points points = cloud(99);
  GaussianSet set = seed(points, settings);
  EXPECT_EQ(set.count, 12000u);
  double mean = 0;
  for (size_t i = 0; i < 10000; ++i) {
    ASSERT_LE(std::abs(set.positions[3 * i + 1] - 20), 2.0f);
    mean += set.positions[3 * i + 2] / 10000;
  }
  EXPECT_NEAR(mean, 30, 0.1);

  settings.extent = 0;
  settings.count = 0;  // as many as there are points
  set = seed(points, settings);
  EXPECT_EQ(set.count, 10000u);
  EXPECT_LE(std::abs(set.positions[0] - 10), 0.0011f);
  EXPECT_EQ(seed(cloud(100), SeedSettings{}).positions, cloud(100).positions);
}

}  // namespace
}  // namespace quor::gs
