// The passes that add, move and remove splats, and that every array follows.
#include <gtest/gtest.h>

#include <array>
#include <cmath>

#include "gs/train/schedule.h"
#include "gs/train/strategy/adaptive_density.h"
#include "gs/train/strategy/densification_edit.h"
#include "gs/train/strategy/mcmc.h"
#include "support/gpu_fixture.h"
#include "support/random_splats.h"

namespace quor::gs {
namespace {

class SplatSetTest : public GpuTest {
 protected:
  // Every value and moment tells its row: row + group / 10 (+ 0.01 and 0.02 for the moments).
  void fillTelling(SplatStore& store, size_t count) {
    GaussianSet set;
    set.resize(count);
    GroupArrays first, second;
    for (size_t g = 0; g < kGroupCount; ++g) {
      const size_t k = kGroupWidths[g];
      for (size_t i = 0; i < count * k; ++i) {
        const float value = static_cast<float>(i / k) + static_cast<float>(g) / 10;
        set.group(static_cast<Group>(g))[i] = value;
        first[g].push_back(value + 0.01f);
        second[g].push_back(value + 0.02f);
      }
    }
    store.upload(transfer, set);
    store.uploadMoments(transfer, first, second);
  }

  void expectRows(const SplatStore& store, const std::vector<uint32_t>& sources) {
    ASSERT_EQ(store.count(), sources.size());
    const GaussianSet set = store.download(transfer);
    GroupArrays first, second;
    store.downloadMoments(transfer, first, second);
    for (size_t g = 0; g < kGroupCount; ++g) {
      const size_t k = kGroupWidths[g];
      for (size_t i = 0; i < sources.size() * k; ++i) {
        const bool fresh = (sources[i / k] & kFreshRow) != 0;
        const float value = static_cast<float>(sources[i / k] & ~kFreshRow) + static_cast<float>(g) / 10;
        ASSERT_EQ(set.group(static_cast<Group>(g))[i], value) << "group " << g << " value " << i;
        ASSERT_EQ(first[g][i], fresh ? 0 : value + 0.01f);
        ASSERT_EQ(second[g][i], fresh ? 0 : value + 0.02f);
      }
    }
  }

  TrainingState stateOf(SplatStore& store) { return {stream, transfer, store, renderer, random}; }

  TrainJob job = resolved({});
  SplitMix64 random{5};
  Renderer renderer{context, registry, Renderer::Mode::Training};
};

TEST_F(SplatSetTest, RearrangingKeepsValuesAndMomentsInStep) {
  SplatStore store(context, SplatStore::Use::Training);
  fillTelling(store, 5);
  store.rearrange(stream, transfer, std::vector<uint32_t>{4, 2, 0});  // shrinks and reorders in place
  expectRows(store, {4, 2, 0});
  EXPECT_EQ(store.capacity(), 5u);

  fillTelling(store, 5);
  const std::vector<uint32_t> grown = {0, 1, 2, 3, 4, 2 | kFreshRow, 2, 0 | kFreshRow};
  EXPECT_THROW(store.rearrange(stream, transfer, grown), std::logic_error);
  store.grow(stream, 12);
  expectRows(store, {0, 1, 2, 3, 4});
  EXPECT_EQ(store.capacity(), 12u);
  store.rearrange(stream, transfer, grown);
  expectRows(store, grown);

  // A growth that fails loses nothing.
  fillTelling(store, 5);
  context.limitMemory(GpuBuffer::liveBytes() + 2000);
  EXPECT_THROW(store.grow(stream, 24), OutOfGpuMemory);
  context.limitMemory(0);
  EXPECT_EQ(store.capacity(), 5u);
  expectRows(store, {0, 1, 2, 3, 4});
}

TEST_F(SplatSetTest, MemoryOfALargerSceneIsGivenBack) {
  SplatStore store(context, SplatStore::Use::RenderOnly);
  store.upload(transfer, test::randomScene(5000, 1));  // the transfer's own buffer counts too
  store.clear();
  const uint64_t before = GpuBuffer::liveBytes();
  store.upload(transfer, test::randomScene(5000, 1));
  EXPECT_GT(GpuBuffer::liveBytes(), before + 5000 * 200);
  store.upload(transfer, test::randomScene(3000, 1));
  EXPECT_EQ(store.capacity(), 5000u) << "what is nearly as large stays";
  store.upload(transfer, {});
  EXPECT_LT(GpuBuffer::liveBytes(), before + 1000);
  store.clear();
  EXPECT_EQ(GpuBuffer::liveBytes(), before);
}

TEST_F(SplatSetTest, SharedSplatsRenderLikeTheOneTheyReplace) {
  // The integral of alpha over a line through the mean stays: that is what the factor of the scales is for.
  for (const double opacity : {0.05, 0.5, 0.95}) {
    for (const int copies : {1, 2, 5, 20, 51}) {
      const SharedSplat shared = shareSplat(opacity, copies);
      if (shared.opacity <= 0.005) continue;  // held up by the floor
      double before = 0, after = 0;
      for (double x = -8; x <= 8; x += 0.001) {
        before += opacity * std::exp(-0.5 * x * x);
        const double single = shared.opacity * std::exp(-0.5 * x * x / (shared.scaleFactor * shared.scaleFactor));
        after += 1 - std::pow(1 - single, copies);
      }
      EXPECT_NEAR(after / before, 1, 2e-3) << opacity << " shared by " << copies;
    }
  }
}

// Together the halves have the mean and the covariance of what they came from, and let as much light through its
// centre.
TEST_F(SplatSetTest, HalvesOfASplitSplatStandForTheWhole) {
  GaussianSet set = test::randomScene(20, 4);
  for (size_t i = 0; i < 20; ++i) set.scales[3 * i + i % 3] += 2;  // the long axis
  SplatStore store(context, SplatStore::Use::Training);
  store.upload(transfer, set);
  GpuBuffer staging;
  DensificationEdit rows = DensificationEdit::fetch(stream, store, staging);
  const DensificationEdit before = rows;
  const auto entry = [](const DensificationEdit& r, size_t i, size_t a, size_t b) {  // of the covariance
    const auto q = [&](size_t k) { return static_cast<double>(r.rotations[4 * i + k]); };
    const double w = q(0), x = q(1), y = q(2), z = q(3), norm = w * w + x * x + y * y + z * z;
    const std::array<double, 9> m = {
        w * w + x * x - y * y - z * z, 2 * (x * y - w * z),           2 * (x * z + w * y),
        2 * (x * y + w * z),           w * w - x * x + y * y - z * z, 2 * (y * z - w * x),
        2 * (x * z - w * y),           2 * (y * z + w * x),           w * w - x * x - y * y + z * z};
    double sum = 0;
    for (size_t k = 0; k < 3; ++k) {
      sum += m[3 * a + k] * m[3 * b + k] * std::exp(2 * static_cast<double>(r.scales[3 * i + k]));
    }
    return sum / (norm * norm);
  };
  for (size_t i = 0; i < 20; ++i) {
    if (i % 2 == 0) rows.makeFresh(i);
    const size_t half = rows.splitLongAxis(i);
    EXPECT_EQ(rows.sources[half], rows.sources[i]);
    const double size = static_cast<double>(before.largestScale(i));
    std::array<double, 3> offset{};
    double reach = 0;  // squared
    for (size_t a = 0; a < 3; ++a) {
      const auto at = [&](const DensificationEdit& r, size_t row) {
        return static_cast<double>(r.positions[3 * row + a]);
      };
      EXPECT_NEAR((at(rows, i) + at(rows, half)) / 2, at(before, i), 1e-5);
      offset[a] = at(rows, half) - at(before, i);
      reach += offset[a] * offset[a];
    }
    EXPECT_NEAR(std::sqrt(reach), kSplitReach * size, 1e-4 * size);
    for (size_t a = 0; a < 3; ++a) {
      for (size_t b = 0; b < 3; ++b) {
        EXPECT_NEAR(entry(rows, i, a, b) + offset[a] * offset[b], entry(before, i, a, b), 1e-4 * size * size);
        EXPECT_EQ(entry(rows, half, a, b), entry(rows, i, a, b));
      }
    }
    const double distance = reach / (size * size * (1 - kSplitReach * kSplitReach));  // squared, in deviations
    const double through = 1 - static_cast<double>(rows.opacity(i)) * std::exp(-0.5 * distance);
    EXPECT_NEAR(through * through, 1 - static_cast<double>(before.opacity(i)), 1e-4);
  }
}

TEST_F(SplatSetTest, DeadSplatsMoveOntoLivingOnesAndTheSetGrows) {
  GaussianSet set = test::randomScene(100, 3);
  for (size_t i = 0; i < 100; ++i) set.opacities[i] = i % 4 == 0 ? -7.0f : 1.0f;  // 25 dead
  SplatStore store(context, SplatStore::Use::Training);
  store.upload(transfer, set);
  Mcmc mcmc(job, 1.0, 1000);
  const RelocateReport report = mcmc.relocate(stateOf(store), 102);
  EXPECT_EQ(report.relocated, 25u);
  EXPECT_EQ(report.grown, 2u);
  const GaussianSet after = store.download(transfer);
  EXPECT_EQ(after.count, 102u);
  for (const float o : after.opacities) EXPECT_GT(1 / (1 + std::exp(-o)), 0.005f);
  for (size_t added = 100; added < 102; ++added) {
    for (size_t j = 0; j < 100; ++j) {
      EXPECT_NE(after.positions[3 * added], after.positions[3 * j])
          << "what is added lies apart from what it came from";
    }
  }
  for (size_t i = 0; i < 100; i += 4) {
    const bool copied = [&] {
      for (size_t j = 0; j < 100; ++j) {
        if (j % 4 != 0 && set.positions[3 * j] == after.positions[3 * i] &&
            set.shRest[45 * j] == after.shRest[45 * i]) {
          return true;
        }
      }
      return false;
    }();
    EXPECT_TRUE(copied) << "a moved splat is a copy of a living one, colours included";
  }
}

// In a scene a hundred times larger, everything moves a hundred times as far.
TEST_F(SplatSetTest, NoiseKnowsNoUnitOfLength) {
  const auto moved = [&](float unit) {
    GaussianSet set = test::randomScene(200, 6);
    std::fill(set.positions.begin(), set.positions.end(), 0.0f);
    std::fill(set.opacities.begin(), set.opacities.end(), -5.0f);
    for (float& scale : set.scales) scale += std::log(unit);
    SplatStore store(context, SplatStore::Use::Training);
    store.upload(transfer, set);
    renderer.reserve(store.count(), 64, 48);
    renderer.project(stream, store, test::testCamera(64, 48), 0, 0.01f);
    random = SplitMix64(5);
    Mcmc(job, static_cast<double>(unit), 1000).afterOptimiser(stateOf(store));
    stream.submit();
    return store.downloadGroup(transfer, kPositions);
  };
  const std::vector<float> small = moved(1), large = moved(100);
  float most = 0;
  for (size_t i = 0; i < small.size(); ++i) {
    EXPECT_NEAR(large[i] / 100, small[i], 1e-3f * std::abs(small[i]) + 1e-7f);
    most = std::max(most, std::abs(small[i]));
  }
  EXPECT_GT(most, 1e-3f);
}

// Gradients of the screen means as a backward pass leaves them, given by hand through a tiny renderer run.
class DensifyTest : public SplatSetTest {
 protected:
  // Four splats in view: small, large, small and quiet, nearly transparent.
  GaussianSet fourSplats() {
    GaussianSet set;
    set.resize(4);
    for (size_t i = 0; i < 4; ++i) {
      set.positions[3 * i] = -0.6f + 0.4f * static_cast<float>(i);
      set.positions[3 * i + 2] = 2;
      const float scale = std::log(i == 1 ? 0.2f : 0.008f);
      set.scales[3 * i] = set.scales[3 * i + 1] = set.scales[3 * i + 2] = scale;
      set.rotations[4 * i] = 1;
      set.opacities[i] = i == 3 ? -6.0f : 1.0f;
    }
    return set;
  }
};

TEST_F(DensifyTest, ClonesSmallSplatsSplitsLargeOnesAndPrunesFaintOnes) {
  job.technique = Technique::Vanilla;
  job.densifyGradient = 1e-9f;
  const Camera camera = test::testCamera(64, 48);
  SplatStore store(context, SplatStore::Use::Training);
  const GaussianSet set = fourSplats();
  store.upload(transfer, set);
  renderer.reserve(4, 64, 48);
  const GpuBuffer photo = makeBuffer(std::vector<uint32_t>(64 * 48 * 3 / 4, 0x40302010u));
  const auto frame = [&](AdaptiveDensity& strategy) {
    renderer.project(stream, store, camera, 0, 0.01f);
    renderer.rasterize(stream, {0, 0, 0});
    renderer.lossAndBackward(stream, store, photo, lossScales(0.2f, 64, 48), {}, false);
    strategy.afterBackward(stateOf(store));
    stream.submit();
  };

  AdaptiveDensity strategy(job, 1.0, 100);
  frame(strategy);
  DensifyReport report = strategy.densify(stateOf(store), false);
  EXPECT_EQ(report.pruned, 1u);
  EXPECT_EQ(report.split, 1u);
  EXPECT_EQ(report.cloned, 2u);
  const GaussianSet after = store.download(transfer);
  ASSERT_EQ(after.count, 6u);
  for (size_t i = 0; i < 6; ++i) {
    EXPECT_LT(std::exp(after.scales[3 * i]), 0.19f) << "the split splat is gone";
  }

  // With room for one more the largest statistic wins.
  store.upload(transfer, set);
  AdaptiveDensity capped(job, 1.0, 4);
  frame(capped);
  report = capped.densify(stateOf(store), false);
  EXPECT_EQ(report.cloned + report.split, 1u);
  EXPECT_EQ(store.count(), 4u);

  // In a scene so large that all of this is right before the camera, gradients say little.
  store.upload(transfer, set);
  AdaptiveDensity near(job, 1e4, 100);
  frame(near);
  report = near.densify(stateOf(store), false);
  EXPECT_EQ(report.cloned + report.split, 0u);

  // Without statistics nothing is added.
  report = capped.densify(stateOf(store), false);
  EXPECT_EQ(report.cloned + report.split, 0u);
}

TEST_F(DensifyTest, DivergedSplatsAreResetAndOpacitiesCanBe) {
  job.technique = Technique::Vanilla;
  GaussianSet set = test::randomScene(50, 9);
  set.positions[3 * 7] = NAN;
  set.shRest[45 * 8 + 44] = INFINITY;
  SplatStore store(context, SplatStore::Use::Training);
  store.upload(transfer, set);
  AdaptiveDensity strategy(job, 1000.0, 100);
  EXPECT_EQ(strategy.densify(stateOf(store), false).reset, 2u);
  GaussianSet after = store.download(transfer);
  for (size_t g = 0; g < kGroupCount; ++g) {
    for (const float v : after.group(static_cast<Group>(g))) ASSERT_TRUE(std::isfinite(v));
  }
  strategy.resetOpacities(stateOf(store));
  after = store.download(transfer);
  for (const float o : after.opacities) EXPECT_LE(1 / (1 + std::exp(-o)), 2 * job.pruneOpacity + 1e-6f);

  set = test::randomScene(3, 9);
  for (float& v : set.positions) v = NAN;
  store.upload(transfer, set);
  EXPECT_THROW(strategy.densify(stateOf(store), false), std::runtime_error);
}

}  // namespace
}  // namespace quor::gs
