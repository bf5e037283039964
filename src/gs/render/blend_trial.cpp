#include "gs/render/blend_trial.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <stdexcept>
#include <string_view>

#include "base/text/text.h"
#include "gpu/device/vulkan_context.h"
#include "gpu/memory/transfer.h"
#include "gs/data/seed.h"

namespace quor::gs {
namespace {

constexpr int kWidth = 640, kHeight = 360;
constexpr uint32_t kSplats = 20000;
constexpr int kFrames = 3;
// Sums are added in other orders, and an alpha at the threshold may fall to either side.
constexpr float kImageTolerance = 5e-3f;
constexpr double kGradientTolerance = 1e-2;
constexpr Group kCompared[] = {kPositions, kScales, kRotations, kOpacities, kShDc};

GaussianSet madeUpScene() {
  SplitMix64 random(1);
  SeedSettings settings;
  settings.count = kSplats;
  settings.opacity = 0.3f;
  GaussianSet set = seedFromPoints({}, {}, settings, random);
  // Of the size that splats have in a scene, longer along one axis, and of many colours.
  for (size_t i = 0; i < set.scales.size(); ++i) set.scales[i] += i % 3 == 0 ? -1.0f : -2.0f;
  for (size_t i = 0; i < set.shDc.size(); ++i) set.shDc[i] = std::sin(0.7f * static_cast<float>(i));
  return set;
}

Camera beforeIt() {
  Camera camera;
  camera.width = kWidth;
  camera.height = kHeight;
  camera.fx = camera.fy = 0.8 * kWidth;
  camera.cx = 0.5 * kWidth;
  camera.cy = 0.5 * kHeight;
  camera.translation = {0, 0, 2};
  return camera;
}

// One set of kernels on the scene.
class Side {
 public:
  Side(VulkanContext& context, KernelRegistry& registry, const Renderer::Variants& variants)
      : stream_(context, registry), renderer_(context, variants, Renderer::Mode::Training) {
    registry.prepare(renderer_.kernelNames());
    renderer_.reserve(kSplats, kWidth, kHeight);
    stream_.setProfiling(true);
  }

  void frame(const SplatStore& splats, const GpuBuffer& photo) {
    renderer_.project(stream_, splats, beforeIt(), 0, 0.01f);
    renderer_.rasterize(stream_, {0, 0, 0});
    renderer_.lossAndBackward(stream_, splats, photo, lossScales(0.2f, kWidth, kHeight), {}, false);
    stream_.submit();
    double milliseconds = 0;
    for (const StageTime& time : stream_.takeProfile()) {
      const std::string_view stage = time.stage;
      if (stage == "forward" || stage == "backward") milliseconds += time.milliseconds;
    }
    least = std::min(least, milliseconds);
  }

  void keep(Transfer& transfer, const SplatStore& splats) {
    image.resize(size_t{3} * kWidth * kHeight);
    transfer.download(renderer_.image(), image.data(), 0, image.size() * sizeof(float));
    for (const Group g : kCompared) {
      gradients[g].resize(kSplats * kGroupWidths[g]);
      transfer.download(splats.gradient(g), gradients[g].data(), 0, gradients[g].size() * sizeof(float));
    }
  }

  double least = std::numeric_limits<double>::infinity();
  std::vector<float> image;
  GroupArrays gradients;

 private:
  ComputeStream stream_;
  Renderer renderer_;
};

// A NaN is like nothing.
bool sameResults(const Side& a, const Side& b) {
  for (size_t i = 0; i < a.image.size(); ++i) {
    if (!(std::abs(a.image[i] - b.image[i]) <= kImageTolerance)) return false;
  }
  return std::all_of(std::begin(kCompared), std::end(kCompared), [&](Group g) {
    double difference = 0, norm = 0;
    for (size_t i = 0; i < a.gradients[g].size(); ++i) {
      const double x = static_cast<double>(a.gradients[g][i]), y = static_cast<double>(b.gradients[g][i]);
      difference += (x - y) * (x - y);
      norm += x * x;
    }
    return std::sqrt(difference) <= kGradientTolerance * std::sqrt(norm);
  });
}

}  // namespace

BlendTrial BlendTrial::of(VulkanContext& context, KernelRegistry& registry, const Renderer::Variants& first,
                          const Renderer::Variants& second) {
  Transfer transfer(context);
  SplatStore splats(context, SplatStore::Use::Training);
  splats.upload(transfer, madeUpScene());
  GpuBuffer photo(context, uint64_t{3} * kWidth * kHeight, BufferKind::Device, "trial photograph");
  transfer.fill(photo, 0x60606060u, 0, photo.size());

  Side a(context, registry, first), b(context, registry, second);
  for (Side* side : {&a, &b}) {
    side->frame(splats, photo);  // a device's first frame is not like the others
    side->least = std::numeric_limits<double>::infinity();
    side->keep(transfer, splats);
  }
  for (int i = 0; i < kFrames; ++i) {
    for (Side* side : {&a, &b}) side->frame(splats, photo);
  }
  return {sameResults(a, b), a.least, b.least};
}

Renderer::Variants variantsByTrial(VulkanContext& context, KernelRegistry& registry, LogStore& log) {
  Renderer::Variants plain = Renderer::Variants::forDevice(context, registry);
  if (plain.forward != "rasterize_forward" || !Renderer::runsPairs(context)) return plain;
  Renderer::Variants pairs = plain;
  pairs.forward = "rasterize_forward_pairs";
  pairs.backward = "rasterize_backward_pairs";
  try {
    const BlendTrial trial = BlendTrial::of(context, registry, plain, pairs);
    if (!trial.alike) {
      log.warning("This GPU's driver gives other results with the faster blending kernels: the plain ones are used.");
      return plain;
    }
    const bool faster = trial.secondMs < trial.firstMs;
    log.info(formatText("Blending: %.2f ms by pixels, %.2f ms by pairs of pixels in a trial; %s", trial.firstMs,
                        trial.secondMs, faster ? "by pairs" : "by pixels"));
    return faster ? pairs : plain;
  } catch (const std::runtime_error& e) {
    log.warning(std::string("The faster blending kernels cannot be used: ") + e.what());
    return plain;
  }
}

}  // namespace quor::gs
