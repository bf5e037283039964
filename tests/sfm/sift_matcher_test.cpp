#include "sfm/match/sift_matcher.h"

#include <gmock/gmock.h>

#include <cmath>

#include "sfm/match/image_pairs.h"
#include "sfm/match/kernels/interfaces.h"
#include "support/feature_database.h"
#include "support/gpu_fixture.h"
#include "support/temp_folder.h"

namespace quor {
namespace {

using test::Descriptors;
using Matches = std::vector<FeatureMatch>;
using Kernel = SiftMatcher::Kernel;

double angleOf(uint32_t dots) {
  return std::acos(std::min(dots / (512.0 * 512.0), 1.0));
}

uint32_t dotOf(const Descriptors& a, size_t i, const Descriptors& b, size_t j) {
  uint32_t sum = 0;
  for (size_t k = 0; k < 128; ++k) sum += uint32_t{a[i * 128 + k]} * b[j * 128 + k];
  return sum;
}

// The feature of `other` that `feature` of `one` matches, by the definition; -1 for none.
int64_t bestIn(const Descriptors& one, size_t feature, const Descriptors& other, const SiftMatchOptions& options) {
  uint32_t best = 0, second = 0;
  int64_t index = -1;
  for (size_t j = 0; j < other.size() / 128; ++j) {
    const uint32_t dots = dotOf(one, feature, other, j);
    if (dots > best) index = static_cast<int64_t>(j);
    second = std::max(second, std::min(best, dots));
    best = std::max(best, dots);
  }
  const bool near = angleOf(best) <= options.maxDistance && angleOf(best) < options.maxRatio * angleOf(second);
  return near ? index : -1;
}

Matches expected(const Descriptors& one, const Descriptors& other, const SiftMatchOptions& options = {}) {
  Matches matches;
  for (size_t i = 0; i < one.size() / 128; ++i) {
    const int64_t j = bestIn(one, i, other, options);
    if (j < 0 || bestIn(other, static_cast<size_t>(j), one, options) != static_cast<int64_t>(i)) continue;
    matches.push_back({static_cast<uint32_t>(i), static_cast<uint32_t>(j)});
  }
  return matches;
}

class SiftMatcherTest : public gs::GpuTest {
 protected:
  std::vector<Kernel> kernels() const {
    std::vector<Kernel> those = {Kernel::Plain, Kernel::Wide};
    if (context.info().packedDot) those.push_back(Kernel::PackedDot);
    return those;
  }

  std::vector<Matches> match(const std::vector<Descriptors>& images, const std::vector<SiftMatcher::Pair>& pairs,
                             Kernel kernel, uint64_t work = SiftMatcher::kSubmissionWork) {
    std::vector<uint32_t> counts;
    for (const Descriptors& image : images) counts.push_back(static_cast<uint32_t>(image.size() / 128));
    SiftMatcher matcher(context, registry, counts, {}, kernel, work);
    for (uint32_t i = 0; i < images.size(); ++i) matcher.upload(i, images[i]);
    std::vector<Matches> all;
    for (const SiftMatcher::Chunk& chunk : matcher.plan(pairs)) {
      for (Matches& one : matcher.match(std::span(pairs).subspan(chunk.first, chunk.last - chunk.first))) {
        all.push_back(std::move(one));
      }
    }
    return all;
  }
};

TEST_F(SiftMatcherTest, MatchesEqualTheDefinitionAboutTheTilesBorders) {
  const Descriptors base = test::randomDescriptors(200, 1);
  std::vector<Descriptors> images;
  for (const size_t count : {0, 1, 2, 63, 64, 65, 130}) {
    images.push_back(test::similarDescriptors(base, 3 * images.size(), count, 25, 10 + count));
  }
  std::vector<SiftMatcher::Pair> pairs;
  for (uint32_t i = 0; i < images.size(); ++i) {
    for (uint32_t j = 0; j < images.size(); ++j) pairs.emplace_back(i, j);
  }
  std::vector<Matches> wanted;
  size_t total = 0;
  for (const auto& [i, j] : pairs) {
    wanted.push_back(expected(images[i], images[j]));
    total += wanted.back().size();
  }
  EXPECT_GT(total, 500u);
  for (const Kernel kernel : kernels()) {
    EXPECT_EQ(match(images, pairs, kernel), wanted);
    EXPECT_EQ(match(images, pairs, kernel, 1), wanted);  // every pair a chunk, every tile a submission
  }
}

TEST_F(SiftMatcherTest, AFeatureThatIsThereTwiceMatchesNothing) {
  const Descriptors base = test::randomDescriptors(70, 2);
  Descriptors twice = base;
  twice.insert(twice.end(), base.begin() + 5 * 128, base.begin() + 6 * 128);
  const Descriptors same(70 * 128, 45);
  for (const Kernel kernel : kernels()) {
    const auto matches = match({base, base, twice, same}, {{0, 1}, {0, 2}, {2, 0}, {3, 3}, {0, 3}}, kernel);
    EXPECT_EQ(matches[0].size(), 70u);
    EXPECT_EQ(matches[1].size(), 69u);
    EXPECT_THAT(matches[1], testing::Not(testing::Contains(testing::Field(&FeatureMatch::first, 5))));
    EXPECT_EQ(matches[2].size(), 69u);
    EXPECT_TRUE(matches[3].empty());
    EXPECT_EQ(matches[4], expected(base, same));
  }
}

TEST_F(SiftMatcherTest, TensOfThousandsOfFeaturesInManySubmissions) {
  const Descriptors many = test::randomDescriptors(30000, 3);
  const Descriptors few = test::similarDescriptors(many, 29970, 60, 8, 4);
  const Matches wanted = expected(few, many);
  EXPECT_GT(wanted.size(), 50u);
  Matches swapped;
  for (const FeatureMatch& match : wanted) swapped.push_back({match.second, match.first});
  std::sort(swapped.begin(), swapped.end(), [](const auto& a, const auto& b) { return a.first < b.first; });
  const auto matches = match({few, many}, {{0, 1}, {1, 0}}, SiftMatcher::kernelFor(context.info()), 1 << 19);
  EXPECT_EQ(matches[0], wanted);
  EXPECT_EQ(matches[1], swapped);
}

// 130 MiB of descriptors: more than a software driver binds at once.
TEST_F(SiftMatcherTest, ImagesMayLieInSeveralBuffers) {
  std::vector<uint32_t> counts(35, 32000);
  counts.front() = counts.back() = 70;
  SiftMatcher matcher(context, registry, counts, {}, SiftMatcher::kernelFor(context.info()));
  const Descriptors base = test::randomDescriptors(70, 6);
  const Descriptors similar = test::similarDescriptors(base, 3, 70, 15, 7);
  matcher.upload(0, base);
  matcher.upload(34, similar);
  const std::vector<SiftMatcher::Pair> pairs = {{0, 34}, {34, 0}};
  const auto matches = matcher.match(pairs);
  EXPECT_EQ(matches[0], expected(base, similar));
  EXPECT_EQ(matches[1], expected(similar, base));
}

TEST_F(SiftMatcherTest, RefusesMoreThanTheGpuBinds) {
  EXPECT_THAT(test::thrownText([&] { SiftMatcher(context, registry, {3'000'000}, {}, Kernel::Plain); }),
              testing::HasSubstr("3000000 features, more than this GPU can match at once"));
}

// The decision on a best and a second best, against the angles themselves. Within a millionth the rounding decides.
TEST_F(SiftMatcherTest, DecidesByAngles) {
  std::vector<uint32_t> partials;
  std::vector<std::pair<uint32_t, uint32_t>> dots;
  SplitMix64 random(5);
  const auto add = [&](uint32_t best, uint32_t second) {
    dots.emplace_back(best, std::min(best, second));
    partials.push_back(best << 6 | 63);
    partials.push_back(std::min(best, second) << 6);
  };
  for (int i = 0; i < 20000; ++i) {
    const auto best = static_cast<uint32_t>(150000 + random.next() % 120000);
    const double limit = std::cos(std::min(angleOf(best) / 0.8, 1.57));
    add(best, static_cast<uint32_t>(limit * 512 * 512) + static_cast<uint32_t>(random.next() % 8));
    add(200490 + static_cast<uint32_t>(i % 16), 1000);  // about the angle of 0.7
  }
  for (const uint32_t best : {0u, 1u, 262143u, 262144u, 262145u, 8323200u}) {
    for (const uint32_t second : {0u, 1u, 262143u, 262144u, 8323200u}) add(best, second);
  }
  const gs::GpuBuffer rows = makeBuffer(partials), columns = makeBuffer(std::vector<uint32_t>(2));
  const auto count = static_cast<uint32_t>(dots.size());
  const gs::GpuBuffer matchA = makeBuffer(std::vector<int32_t>(count)), matchB = makeBuffer(std::vector<int32_t>(1));
  stream.dispatch1D(gs::kernels::SiftMatchReduce{&rows, &columns, &matchA, &matchB}, {count, 1, 1, 1, 0.8f, 0.7f},
                    count + 1);
  stream.submit();
  const std::vector<int32_t> found = readBuffer<int32_t>(matchA);
  size_t decided = 0;
  for (size_t i = 0; i < count; ++i) {
    const double angle = angleOf(dots[i].first), ratio = angle - 0.8f * angleOf(dots[i].second);
    if (std::abs(angle - 0.7f) < 1e-6 || (std::abs(ratio) < 1e-6 && angle > 0)) continue;
    EXPECT_EQ(found[i], angle <= 0.7 && ratio < 0 ? 0 : -1) << dots[i].first << " " << dots[i].second;
    ++decided;
  }
  EXPECT_GT(decided, count / 2);
}

using Pairs = std::vector<ImagePair>;

TEST(ImagePairs, AreThoseThatColmapMatches) {
  const std::vector<DatabaseImage> images = {{7, "a", 1}, {3, "b", 1}, {5, "d", 1},
                                             {4, "c", 1}, {9, "e", 1}, {2, "f", 1}};
  EXPECT_EQ(exhaustivePairs({images[0], images[1], images[2]}), (Pairs{{3, 7}, {5, 7}, {3, 5}}));
  EXPECT_EQ(exhaustivePairs(images).size(), 15u);
  // By name: 7 3 4 5 9 2. An overlap of 3 reaches 1, 2 and 4 places on.
  EXPECT_EQ(sequentialPairs(images, 3),
            (Pairs{{3, 7}, {4, 7}, {7, 9}, {3, 4}, {3, 5}, {2, 3}, {4, 5}, {4, 9}, {5, 9}, {2, 5}, {2, 9}}));
  EXPECT_EQ(sequentialPairs(images, 1), (Pairs{{3, 7}, {3, 4}, {4, 5}, {5, 9}, {2, 9}}));
  EXPECT_EQ(sequentialPairs(images, 1000).size(), 15u);
  EXPECT_TRUE(exhaustivePairs({}).empty());
  EXPECT_TRUE(sequentialPairs({images[0]}, 10).empty());
}

}  // namespace
}  // namespace quor
