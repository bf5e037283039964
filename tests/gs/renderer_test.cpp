// The renderer, the losses and every gradient against the double-precision reference.
#include "gs/render/renderer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cmath>

#include "base/split_mix64.h"
#include "gs/render/blend_trial.h"
#include "support/gpu_fixture.h"
#include "support/random_splats.h"
#include "support/reference_renderer.h"

namespace quor::gs {
namespace {

using test::ReferenceSplats;

constexpr float kNear = 0.05f;

std::vector<uint32_t> packBytes(const std::vector<uint8_t>& bytes) {
  std::vector<uint32_t> words((bytes.size() + 3) / 4);
  for (size_t i = 0; i < bytes.size(); ++i) words[i / 4] |= static_cast<uint32_t>(bytes[i]) << (8 * (i % 4));
  return words;
}

// A smooth, coloured photograph that no render of the random splats comes near.
std::vector<uint8_t> testPhoto(int width, int height) {
  std::vector<uint8_t> bytes;
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      for (int c = 0; c < 3; ++c) {
        const double v = 0.5 + 0.3 * std::sin(0.7 * x + 1.3 * c) * std::cos(0.5 * y - c);
        bytes.push_back(static_cast<uint8_t>(255 * v));
      }
    }
  }
  return bytes;
}

std::vector<double> asTarget(const std::vector<uint8_t>& bytes) {
  std::vector<double> target;
  for (const uint8_t b : bytes) target.push_back(b / 255.0);
  return target;
}

constexpr Renderer::Sorts kScans = Renderer::Sorts::Scans, kRuns = Renderer::Sorts::Runs;
constexpr const char* kNativePairs = "rasterize_backward_pairs:NATIVE_ATOMIC=1";
constexpr const char* kEmulatedPairs = "rasterize_backward_pairs:NATIVE_ATOMIC=0";

class RendererTest : public GpuTest {
 protected:
  explicit RendererTest(GpuTestDevice& device = GpuTestDevice::plain()) : GpuTest(device) {}

  bool runsPairs() const { return context.info().subgroupSize >= 8 && registry.runs("rasterize_forward_pairs"); }

  std::vector<std::string> backwardVariants() const {
    std::vector<std::string> names = {Renderer::Variants::forDevice(context, registry).backward};
    for (const char* pairs : {kNativePairs, kEmulatedPairs}) {
      if (runsPairs() && registry.runs(pairs)) names.push_back(pairs);
    }
    for (const char* sg : {"0", "1"}) {
      for (const char* atomic : {"0", "1"}) {
        const std::string name = std::string("rasterize_backward:SG=") + sg + ",NATIVE_ATOMIC=" + atomic;
        if (registry.runs(name)) names.push_back(name);
      }
    }
    return names;
  }

  std::vector<float> render(Renderer& renderer, const GaussianSet& set, const Camera& camera, int degree,
                            const std::array<float, 3>& background) {
    SplatStore store(context, SplatStore::Use::RenderOnly);
    store.upload(transfer, set);
    renderer.reserve(store.count(), camera.width, camera.height);
    renderer.project(stream, store, camera, degree, kNear);
    renderer.rasterize(stream, background);
    stream.submit();
    auto image = readBuffer<float>(renderer.image());
    image.resize(static_cast<size_t>(camera.width) * static_cast<size_t>(camera.height) * 3);
    return image;
  }

  void checkGradients(const std::vector<std::string>& variants, int degree, uint64_t seed);
};

class RendererFallbackTest : public RendererTest {
 protected:
  RendererFallbackTest() : RendererTest(GpuTestDevice::withFallbacks()) {}
};

TEST_F(RendererTest, ForwardImagesAgreeWithTheReference) {
  const std::array<float, 3> background = {0.2f, 0.4f, 0.1f};
  std::vector<std::string> forwards = {"rasterize_forward", Renderer::Variants::forDevice(context, registry).forward};
  if (runsPairs()) forwards.emplace_back("rasterize_forward_pairs");
  for (const std::string& forward : forwards) {
    Renderer renderer(context, {forward, registry.backwardKernelName(), LossKernels::Steps, kScans},
                      Renderer::Mode::RenderOnly);
    for (const auto& [width, height, count] : {std::array{70, 45, 300}, {16, 16, 40}, {33, 1, 40}, {1, 1, 40}}) {
      for (int degree = 0; degree <= 3; ++degree) {
        const GaussianSet set = test::randomScene(static_cast<size_t>(count), 7 + static_cast<uint64_t>(degree));
        const Camera camera = test::testCamera(width, height);
        const auto image = render(renderer, set, camera, degree, background);
        const auto expected = test::renderReference(ReferenceSplats(set), camera, degree, background, kNear);
        double worst = 0;
        for (size_t i = 0; i < image.size(); ++i) worst = std::max(worst, std::abs(image[i] - expected.rgb[i]));
        EXPECT_LT(worst, 1e-4) << forward << " " << width << "x" << height << " degree " << degree;
      }
    }
  }
}

TEST_F(RendererTest, NothingToSeeGivesTheBackground) {
  Renderer renderer(context, registry, Renderer::Mode::RenderOnly);
  const Camera camera = test::testCamera(20, 20);
  GaussianSet set = test::randomScene(5, 3);
  for (size_t i = 0; i < 5; ++i) set.positions[3 * i + 2] = -3;  // behind the camera
  GaussianSet faint = test::randomScene(3, 3);
  for (float& o : faint.opacities) o = -5.6f;  // under 1/255
  GaussianSet broken = test::randomScene(2, 3);
  broken.positions[0] = NAN;
  broken.rotations[4] = broken.rotations[5] = broken.rotations[6] = broken.rotations[7] = 0;
  for (const GaussianSet& nothing : {set, faint, broken, GaussianSet()}) {
    const auto image = render(renderer, nothing, camera, 3, {0.25f, 0.5f, 0.75f});
    EXPECT_EQ(renderer.instances(), 0u);
    for (size_t i = 0; i < image.size(); ++i) ASSERT_EQ(image[i], 0.25f * static_cast<float>(i % 3 + 1));
  }
}

TEST_F(RendererTest, OpaqueSplatsEndAPixelAndAreStillBlended) {
  // Three opaque discs over the whole image: T falls to 1e-3, then under 1e-4 by the second, and the third is not seen.
  GaussianSet set;
  set.resize(3);
  for (size_t i = 0; i < 3; ++i) {
    set.positions[3 * i + 2] = 2.0f + static_cast<float>(i);
    set.scales[3 * i] = set.scales[3 * i + 1] = set.scales[3 * i + 2] = 3.0f;
    set.rotations[4 * i] = 1;
    set.opacities[i] = 20;
    set.shDc[3 * i + i] = 1;
  }
  Camera camera = test::testCamera(16, 16);
  camera.rotation = {1, 0, 0, 0, 1, 0, 0, 0, 1};
  camera.translation = {0, 0, 0};
  Renderer renderer(context, registry, Renderer::Mode::RenderOnly);
  const auto image = render(renderer, set, camera, 0, {0, 0, 0});
  const auto expected = test::renderReference(ReferenceSplats(set), camera, 0, {0, 0, 0}, kNear);
  EXPECT_GT(image[1], image[2]) << "the second disc's green is blended, the third's blue is not";
  for (size_t i = 0; i < image.size(); ++i) ASSERT_NEAR(image[i], expected.rgb[i], 1e-5);
}

TEST_F(RendererTest, ListsAreTheSameBySortsOfEveryKind) {
  std::vector<Renderer::Sorts> sorts = {kScans, kRuns};
  if (registry.runs("radix_ballot_scatter") && context.info().subgroupSize >= 8) {
    sorts.push_back(Renderer::Sorts::Ballots);
  }
  // Fewer splats than runs, runs of unequal length, and a scene as large as one gets in minutes of training: what an
  // invocation does for many splats must not end early.
  for (const size_t count : {5u, 1000u, 70'000u}) {
    GaussianSet set = test::randomScene(count, 13);
    const bool large = count > 5000;
    if (large) {
      for (float& scale : set.scales) scale -= 2.5f;  // else a few in front hide the rest
    }
    const Camera camera = large ? test::testCamera(640, 427) : test::testCamera(70, 45);
    std::vector<std::vector<float>> images;
    std::vector<uint32_t> instances;
    for (const Renderer::Sorts sort : sorts) {
      Renderer renderer(context, {"rasterize_forward", registry.backwardKernelName(), LossKernels::Steps, sort},
                        Renderer::Mode::RenderOnly);
      images.push_back(render(renderer, set, camera, 0, {0.1f, 0.2f, 0.3f}));
      instances.push_back(renderer.instances());
      EXPECT_EQ(instances.back(), instances.front()) << count;
      EXPECT_EQ(images.back(), images.front()) << count;
    }
  }
}

// Lists of several batches, of which subgroups pass over much: what one kernel of a variant adds up the other takes
// apart, so both go together.
TEST_F(RendererTest, PairsOfPixelsAreBlendedAsPixelByPixel) {
  if (!runsPairs()) GTEST_SKIP() << "needs subgroups of eight or more";
  const GaussianSet scene = test::randomScene(6000, 17);
  const Camera camera = test::testCamera(150, 83);
  const GpuBuffer photo = makeBuffer(packBytes(testPhoto(camera.width, camera.height)));
  SplatStore store(context, SplatStore::Use::Training);
  store.upload(transfer, scene);
  std::vector<float> images[2], gradients[2][kGroupCount];
  for (const bool pairs : {false, true}) {
    Renderer renderer(context,
                      pairs ? Renderer::Variants{"rasterize_forward_pairs", kEmulatedPairs}
                            : Renderer::Variants{"rasterize_forward", registry.backwardKernelName()},
                      Renderer::Mode::Training);
    renderer.reserve(store.count(), camera.width, camera.height);
    renderer.project(stream, store, camera, 1, kNear);
    renderer.rasterize(stream, {0.3f, 0.1f, 0.6f});
    renderer.lossAndBackward(stream, store, photo, lossScales(0.2f, camera.width, camera.height), {}, false);
    stream.submit();
    EXPECT_GT(renderer.instances(), 30u * 1000u);
    images[pairs] = readBuffer<float>(renderer.image());
    for (const Group g : {kPositions, kScales, kRotations, kOpacities, kShDc}) {
      gradients[pairs][g] = readBuffer<float>(store.gradient(g));
    }
  }
  for (size_t i = 0; i < images[0].size(); ++i) ASSERT_NEAR(images[1][i], images[0][i], 1e-4) << i;
  for (const Group g : {kPositions, kScales, kRotations, kOpacities, kShDc}) {
    double difference = 0, norm = 0;
    for (size_t i = 0; i < gradients[0][g].size(); ++i) {
      difference += std::pow(static_cast<double>(gradients[1][g][i] - gradients[0][g][i]), 2);
      norm += std::pow(static_cast<double>(gradients[0][g][i]), 2);
    }
    EXPECT_LT(std::sqrt(difference), 1e-3 * std::sqrt(norm)) << "group " << g;
  }
}

TEST_F(RendererTest, ATrialFindsThePairsLikeThePlainKernels) {
  if (!runsPairs()) GTEST_SKIP() << "needs subgroups of eight or more";
  std::vector<BlendFinding> findings;
  for (const char* backward : {"rasterize_backward:SG=1,NATIVE_ATOMIC=0", kEmulatedPairs, kNativePairs}) {
    if (registry.runs(backward)) findings.push_back({{"rasterize_forward_pairs", backward}});
  }
  findings.insert(findings.begin(), {{"rasterize_forward", registry.backwardKernelName()}});
  timeBlends(context, registry, findings);
  for (const BlendFinding& finding : findings) {
    EXPECT_TRUE(finding.alike) << finding.variants.backward;
    EXPECT_GT(finding.milliseconds, 0);
    EXPECT_TRUE(std::isfinite(finding.milliseconds));
  }
}

// Every backward kernel adds up rightly here; one whose cap on alpha was changed in its SPIR-V stands for a driver that
// does not.
TEST_F(RendererTest, ATrialFindsWrongSums) {
  std::vector<Renderer::Variants> candidates;
  for (const std::string& backward : backwardVariants()) {
    const bool wide = backward.ends_with("_wide");
    candidates.push_back(
        {wide ? "rasterize_forward_wide" : "rasterize_forward", backward, LossKernels::Steps, wide ? kRuns : kScans});
  }
  for (const BlendFinding& finding : checkBlends(context, registry, candidates)) {
    EXPECT_TRUE(finding.addsUp()) << finding.variants.backward << " is off by " << finding.sumError;
  }

  const std::string name = registry.backwardKernelName();
  const auto& table = splatKernels();
  EmbeddedKernel broken = *std::find_if(table.begin(), table.end(), [&](const auto& k) { return k.name == name; });
  std::vector<uint32_t> words(broken.words, broken.words + broken.bytes / sizeof(uint32_t));
  ASSERT_EQ(std::count(words.begin(), words.end(), std::bit_cast<uint32_t>(0.999f)), 1);
  std::replace(words.begin(), words.end(), std::bit_cast<uint32_t>(0.999f), std::bit_cast<uint32_t>(0.2f));
  broken.name = "broken";
  broken.words = words.data();
  KernelRegistry withBroken(context, {splatKernels(), std::span(&broken, 1)});
  const auto findings = checkBlends(context, withBroken, {{"rasterize_forward", "broken"}});
  EXPECT_FALSE(findings.at(0).addsUp()) << findings.at(0).sumError;
}

TEST_F(RendererTest, ScoresAgreeWithTheReference) {
  const int width = 37, height = 22;
  const GaussianSet set = test::randomScene(120, 5);
  const Camera camera = test::testCamera(width, height);
  const auto bytes = testPhoto(width, height);
  const GpuBuffer photo = makeBuffer(packBytes(bytes));
  Renderer renderer(context, registry, Renderer::Mode::Training);
  render(renderer, set, camera, 2, {1.5f, 0, 0});  // some values above 1
  const ImageScores scores = renderer.score(stream, photo);
  const auto expected = test::renderReference(ReferenceSplats(set), camera, 2, {1.5f, 0, 0}, kNear);
  const auto reference = test::scoreReference(expected.rgb, asTarget(bytes), width, height);
  EXPECT_NEAR(scores.l1, reference.l1, 1e-5);
  EXPECT_NEAR(scores.mse, reference.mse, 1e-5);
  EXPECT_NEAR(scores.ssim, reference.ssim, 1e-5);
}

// The loss in one pass or two cuts the image into strips or tiles that look over to their neighbours: sizes about their
// borders, against the reference's scores and the plain kernels' gradients, which the finite differences below hold.
TEST_F(RendererTest, TheLossInStripsAndTilesIsTheLossStepByStep) {
  std::vector<LossKernels> variants = {LossKernels::Steps, LossKernels::Tiles};
  if (context.info().subgroupSize == 8 && context.info().subgroupShuffle) variants.push_back(LossKernels::Strips);
  for (const auto& [width, height] :
       {std::pair{1, 1}, {54, 3}, {64, 12}, {65, 192}, {109, 193}, {3, 400}, {315, 17}, {16, 16}, {33, 32}}) {
    SCOPED_TRACE(testing::Message() << width << "x" << height);
    const auto bytes = testPhoto(width, height);
    const size_t pixels = static_cast<size_t>(width) * static_cast<size_t>(height);
    SplitMix64 random(pixels);
    std::vector<float> values;
    for (const uint8_t b : bytes) values.push_back(static_cast<float>(b / 255.0 + 0.4 * (random.uniform() - 0.5)));
    const GpuBuffer photo = makeBuffer(packBytes(bytes)), image = makeBuffer(values);
    const GpuBuffer alpha = makeBuffer(std::vector<float>(pixels, 0.5f));
    const float background[3] = {0.3f, 0.1f, 0.6f};
    const ImageLoss::Frame frame = {image, alpha, width, height};
    // SSIM's denominators amplify the rounding of the blurs; gradients are of the order of one over the values' number.
    const float tolerance = 2e-4f / static_cast<float>(3 * pixels);
    std::vector<float> dImage, dAccumulated;
    for (const LossKernels variant : variants) {
      SCOPED_TRACE(static_cast<int>(variant));
      ImageLoss loss(context, variant);
      loss.reserve(pixels);
      loss.backward(stream, frame, photo, lossScales(0.2f, width, height), background, true, true);
      stream.submit();
      const auto dImageHere = readBuffer<float>(loss.imageGradient());
      const auto dAccumulatedHere = readBuffer<float>(loss.alphaGradient());
      if (variant == LossKernels::Steps) {
        dImage = dImageHere;
        dAccumulated = dAccumulatedHere;
      }
      for (size_t i = 0; i < 3 * pixels; ++i) ASSERT_NEAR(dImageHere[i], dImage[i], tolerance) << i;
      for (size_t i = 0; i < pixels; ++i) ASSERT_NEAR(dAccumulatedHere[i], dAccumulated[i], tolerance) << i;
      const ImageScores scores = loss.finishScore(width, height);
      const auto expected = test::scoreReference({values.begin(), values.end()}, asTarget(bytes), width, height);
      EXPECT_NEAR(scores.l1, expected.l1, 1e-5);
      EXPECT_NEAR(scores.mse, expected.mse, 1e-5);
      EXPECT_NEAR(scores.ssim, expected.ssim, 1e-5);
    }
  }
}

// Loss of the reference as the trainer weighs it, with MCMC's regularisers.
double referenceLoss(const ReferenceSplats& splats, const Camera& camera, int degree,
                     const std::array<float, 3>& background, const std::vector<double>& target, double ssimWeight,
                     double opacityWeight, double scaleWeight) {
  const auto image = test::renderReference(splats, camera, degree, background, kNear);
  const auto scores = test::scoreReference(image.rgb, target, camera.width, camera.height);
  double loss = (1 - ssimWeight) * scores.l1 + ssimWeight * (1 - scores.ssim);
  for (const double logit : splats.groups[kOpacities]) loss += opacityWeight / (1 + std::exp(-logit));
  for (const double logScale : splats.groups[kScales]) loss += scaleWeight * std::exp(logScale);
  return loss;
}

// The 59 parameters of every splat by central differences, against the kernels' gradients for each given variant.
void RendererTest::checkGradients(const std::vector<std::string>& variants, int degree, uint64_t seed) {
  const std::array<float, 3> background = {0.3f, 0.1f, 0.6f};
  const Camera camera = test::testCamera(40, 27);
  const GaussianSet set = test::randomScene(28, seed);
  const auto bytes = testPhoto(camera.width, camera.height);
  const auto target = asTarget(bytes);
  const double ssimWeight = 0.2, opacityWeight = 1e-3, scaleWeight = 2e-3;

  std::array<std::vector<double>, kGroupCount> expected;
  ReferenceSplats splats(set);
  for (size_t g = 0; g < kGroupCount; ++g) {
    for (double& value : splats.groups[g]) {
      const double before = value, h = 1e-6;
      double side[2];
      for (int s = 0; s < 2; ++s) {
        value = before + (s == 0 ? h : -h);
        side[s] = referenceLoss(splats, camera, degree, background, target, ssimWeight, opacityWeight, scaleWeight);
      }
      value = before;
      expected[g].push_back((side[0] - side[1]) / (2 * h));
    }
  }

  const GpuBuffer photo = makeBuffer(packBytes(bytes));
  for (const std::string& variant : variants) {
    const bool wide = variant.ends_with("wide"), native = variant.ends_with("ATOMIC=1");
    const LossKernels loss = wide ? LossKernels::Strips : native ? LossKernels::Tiles : LossKernels::Steps;
    Renderer renderer(context, {"rasterize_forward", variant, loss, wide ? kRuns : kScans}, Renderer::Mode::Training);
    SplatStore store(context, SplatStore::Use::Training);
    store.upload(transfer, set);
    renderer.reserve(store.count(), camera.width, camera.height);
    renderer.project(stream, store, camera, degree, kNear);
    renderer.rasterize(stream, background);
    renderer.lossAndBackward(stream, store, photo,
                             lossScales(static_cast<float>(ssimWeight), camera.width, camera.height),
                             {static_cast<float>(opacityWeight), static_cast<float>(scaleWeight)}, false);
    stream.submit();
    for (size_t g = 0; g < kGroupCount; ++g) {
      auto gradient = readBuffer<float>(store.gradient(static_cast<Group>(g)));
      gradient.resize(expected[g].size());
      double difference = 0, norm = 0, largest = 0;
      for (const double e : expected[g]) largest = std::max(largest, std::abs(e));
      for (size_t i = 0; i < gradient.size(); ++i) {
        const double actual = static_cast<double>(gradient[i]);
        difference += (actual - expected[g][i]) * (actual - expected[g][i]);
        norm += expected[g][i] * expected[g][i];
        // Relative to the entry, with a floor at a thousandth of the group's largest.
        EXPECT_NEAR(actual, expected[g][i], 1e-2 * std::max(std::abs(expected[g][i]), 1e-3 * largest))
            << variant << " group " << g << " value " << i;
      }
      EXPECT_LT(std::sqrt(difference), 1e-3 * std::sqrt(norm)) << variant << " group " << g;
    }
  }
}

TEST_F(RendererTest, GradientsOfAllParametersAgreeWithFiniteDifferences) {
  checkGradients(backwardVariants(), 3, 21);
}

TEST_F(RendererFallbackTest, GradientsAgreeWithoutFloatAtomicsAndSubgroups) {
  ASSERT_EQ(backwardVariants().front(), "rasterize_backward:SG=0,NATIVE_ATOMIC=0");
  checkGradients(backwardVariants(), 1, 22);
}

TEST_F(GpuTest, PicturesForTheWindowAreClampedAndRounded) {
  const GpuBuffer rgb = makeBuffer(std::vector<float>{0, 0.5f, 1, -3, 7, 0.2f, 1e-4f, 0.998f, 1e30f});
  const GpuBuffer packed = makeBuffer(std::vector<uint32_t>(4, 7));
  stream.dispatch1D(kernels::RgbToRgba8{.rgb = &rgb, .packedBytes = &packed}, {3}, 3);
  stream.submit();
  const std::vector<uint32_t> bytes = readBuffer<uint32_t>(packed);
  EXPECT_TRUE(bytes[0] == 0xFFFF8000 || bytes[0] == 0xFFFF7F00);  // either way of rounding 127.5 will do
  EXPECT_EQ(bytes[1], 0xFF33FF00);
  EXPECT_EQ(bytes[2], 0xFFFFFE00);
  EXPECT_EQ(bytes[3], 7u);
}

}  // namespace
}  // namespace quor::gs
