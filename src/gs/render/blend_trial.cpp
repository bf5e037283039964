#include "gs/render/blend_trial.h"

#include <algorithm>
#include <cmath>
#include <memory>
#include <stdexcept>
#include <string_view>

#include "base/failures.h"
#include "base/text/text.h"
#include "gpu/device/vulkan_context.h"
#include "gpu/memory/transfer.h"
#include "gs/data/seed.h"
#include "gs/render/kernels/include/shared_constants.h"

namespace quor::gs {
namespace {

// The scenes of a trial: this size for the check, then larger until the plain kernels take kEnoughMs for a frame.
constexpr int kWidth = 160, kHeight = 90;
constexpr uint32_t kSplats = 1250;
constexpr int kEdges[] = {1, 4, 8, 12};  // times kWidth and kHeight; splats grow with the area
constexpr double kEnoughMs = 2;
// Frames of each candidate: until they have taken so long, and no more than so many.
constexpr double kTimedMs = 60;
constexpr int kMinFrames = 2, kMaxFrames = 20;
// Rounding, and splats whose alpha lies at the threshold, keep the sums this close; a lost addition does not.
constexpr double kSumTolerance = 2e-3;
// Sums are added in other orders, and an alpha at the threshold may fall to either side.
constexpr float kImageTolerance = 5e-3f;
constexpr double kGradientTolerance = 1e-2;
constexpr Group kCompared[] = {kPositions, kScales, kRotations, kOpacities, kShDc};

uint32_t splatsAt(int edge) {
  return kSplats * static_cast<uint32_t>(edge * edge);
}

GaussianSet madeUpScene(uint32_t count) {
  SplitMix64 random(1);
  SeedSettings settings;
  settings.count = count;
  settings.opacity = 0.3f;
  GaussianSet set = seedFromPoints({}, {}, settings, random);
  // Of the size that splats have in a scene, longer along one axis, and of many colours.
  for (size_t i = 0; i < set.scales.size(); ++i) set.scales[i] += i % 3 == 0 ? -1.0f : -2.0f;
  for (size_t i = 0; i < set.shDc.size(); ++i) set.shDc[i] = std::sin(0.7f * static_cast<float>(i));
  return set;
}

Camera cameraAt(int edge) {
  Camera camera;
  camera.width = kWidth * edge;
  camera.height = kHeight * edge;
  camera.fx = camera.fy = 0.8 * camera.width;
  camera.cx = 0.5 * camera.width;
  camera.cy = 0.5 * camera.height;
  camera.translation = {0, 0, 2};
  return camera;
}

// The made-up scene in front of a photograph of one grey.
struct Scene {
  Scene(VulkanContext& context, int edge, uint8_t grey)
      : camera(cameraAt(edge)),
        set(madeUpScene(splatsAt(edge))),
        transfer(context),
        splats(context, SplatStore::Use::Training),
        photo(context, 3 * pixels(), BufferKind::Device, "trial photograph") {
    splats.upload(transfer, set);
    transfer.fill(photo, 0x01010101u * grey, 0, photo.size());
  }
  uint64_t pixels() const { return static_cast<uint64_t>(camera.width) * static_cast<uint64_t>(camera.height); }

  Camera camera;
  GaussianSet set;
  Transfer transfer;
  SplatStore splats;
  GpuBuffer photo;
};

// One candidate on a scene.
class Side {
 public:
  Side(VulkanContext& context, KernelRegistry& registry, const Renderer::Variants& variants, Scene& scene)
      : scene_(scene), stream_(context, registry), renderer_(context, variants, Renderer::Mode::Training) {
    registry.prepare(renderer_.kernelNames());
    renderer_.reserve(scene.splats.count(), scene.camera.width, scene.camera.height);
    stream_.setProfiling(true);
  }

  // Milliseconds of the two blending kernels.
  double frame(const LossScales& loss) {
    renderer_.project(stream_, scene_.splats, scene_.camera, 0, 0.01f);
    renderer_.rasterize(stream_, {0, 0, 0});
    renderer_.lossAndBackward(stream_, scene_.splats, scene_.photo, loss, {}, false);
    stream_.submit();
    double milliseconds = 0;
    for (const StageTime& time : stream_.takeProfile()) {
      const std::string_view stage = time.stage;
      if (stage == "forward" || stage == "backward") milliseconds += time.milliseconds;
    }
    return milliseconds;
  }
  double frame() { return frame(lossScales(0.2f, scene_.camera.width, scene_.camera.height)); }

  std::vector<float> image() { return read(renderer_.image(), 3 * scene_.pixels()); }
  std::vector<float> imageGradient() { return read(renderer_.loss().imageGradient(), 3 * scene_.pixels()); }
  std::vector<float> gradient(Group g) { return read(scene_.splats.gradient(g), scene_.set.count * kGroupWidths[g]); }

 private:
  std::vector<float> read(const GpuBuffer& buffer, size_t count) {
    std::vector<float> values(count);
    scene_.transfer.download(buffer, values.data(), 0, count * sizeof(float));
    return values;
  }

  Scene& scene_;
  ComputeStream stream_;
  Renderer renderer_;
};

// The picture is linear in the splats' colours c, so sum c dL/dc over the splats is sum of picture times its gradient
// over the pixels: every addition of the backward kernel is in the former, none in the latter. The photograph is black
// and the loss L1, so that all terms are positive and none hides another.
double sumErrorOf(Side& side, const GaussianSet& set) {
  side.frame({.l1 = 1, .ssim = 0});
  const std::vector<float> image = side.image(), dImage = side.imageGradient(), dShDc = side.gradient(kShDc);
  double expected = 0, found = 0;
  for (size_t i = 0; i < image.size(); ++i) expected += static_cast<double>(image[i]) * static_cast<double>(dImage[i]);
  for (size_t i = 0; i < dShDc.size(); ++i) {
    const double colour = 0.5 + SH_C0 * static_cast<double>(set.shDc[i]);
    found += colour * static_cast<double>(dShDc[i]) / SH_C0;
  }
  return std::abs(found / expected - 1);
}

struct Results {
  explicit Results(Side& side) : image(side.image()) {
    for (const Group g : kCompared) gradients[g] = side.gradient(g);
  }
  std::vector<float> image;
  GroupArrays gradients;
};

// A NaN is like nothing.
bool sameResults(const Results& a, const Results& b) {
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

// Whether a trial at this size takes a quarter of the free memory at most.
bool fits(const VulkanContext& context, int edge, size_t candidates) {
  const uint64_t splats = splatsAt(edge),
                 pixels = uint64_t{kWidth} * kHeight * static_cast<uint64_t>(edge) * static_cast<uint64_t>(edge);
  const uint64_t store = splats * 4 * kFloatsPerSplat * sizeof(float);
  const uint64_t renderer = splats * kRendererBytesPerSplat + pixels * kRendererBytesPerPixel;
  return store + candidates * renderer <= context.freeMemory() / 4;
}

// The smallest scene that keeps the first candidate busy.
std::unique_ptr<Scene> sceneFor(VulkanContext& context, KernelRegistry& registry,
                                const std::vector<BlendFinding>& findings) {
  std::unique_ptr<Scene> scene;
  for (const int edge : kEdges) {
    if (scene != nullptr && !fits(context, edge, findings.size())) break;
    scene = std::make_unique<Scene>(context, edge, uint8_t{0x60});
    Side side(context, registry, findings.front().variants, *scene);
    side.frame();  // a device's first frame is not like the others
    if (side.frame() >= kEnoughMs) break;
  }
  return scene;
}

std::string nameOf(const Renderer::Variants& variants) {
  return variants.forward + " and " + variants.backward;
}

// Plain kernels that do without what may be broken: first without float atomics, then without subgroup operations.
std::vector<Renderer::Variants> fallbacks(const KernelRegistry& registry) {
  std::vector<Renderer::Variants> found;
  for (const char* backward : {"rasterize_backward:SG=1,NATIVE_ATOMIC=0", "rasterize_backward:SG=0,NATIVE_ATOMIC=1",
                               "rasterize_backward:SG=0,NATIVE_ATOMIC=0"}) {
    if (registry.runs(backward)) found.push_back({"rasterize_forward", backward});
  }
  return found;
}

std::vector<BlendFinding> soundBlends(VulkanContext& context, KernelRegistry& registry, LogStore& log) {
  std::vector<BlendFinding> findings = checkBlends(context, registry, blendCandidates(context, registry));
  const auto drop = [&] {
    std::erase_if(findings, [&](const BlendFinding& finding) {
      if (finding.addsUp()) return false;
      const std::string why = finding.failure.empty() ? "they add up gradients wrongly" : finding.failure;
      log.warning("The blending kernels " + nameOf(finding.variants) + " are not used on this GPU: " + why);
      return true;
    });
  };
  drop();
  if (findings.empty()) {
    findings = checkBlends(context, registry, fallbacks(registry));
    drop();
  }
  if (findings.empty()) {
    throw std::runtime_error("This GPU's driver adds up gradients wrongly. Update the graphics driver.");
  }
  return findings;
}

Renderer::Variants fastestOf(VulkanContext& context, KernelRegistry& registry, std::vector<BlendFinding> findings,
                             LogStore& log) {
  if (findings.size() == 1) return findings.front().variants;
  try {
    timeBlends(context, registry, findings);
  } catch (const DeviceLost&) {
    throw;
  } catch (const std::runtime_error& e) {
    log.warning(std::string("The blending kernels cannot be compared, the plain ones are used: ") + e.what());
    return findings.front().variants;
  }
  const BlendFinding* best = &findings.front();
  std::string times;
  for (const BlendFinding& finding : findings) {
    if (!finding.alike) {
      log.warning("The blending kernels " + nameOf(finding.variants) +
                  " are not used on this GPU: they give other results than the plain ones");
      continue;
    }
    times += formatText("%s%.2f ms by %s", times.empty() ? "" : ", ", finding.milliseconds,
                        nameOf(finding.variants).c_str());
    if (finding.milliseconds < best->milliseconds) best = &finding;
  }
  log.info("Blending: " + times + " in a trial; " + nameOf(best->variants) + " are used");
  return best->variants;
}

}  // namespace

bool BlendFinding::addsUp() const {
  return sumError <= kSumTolerance;
}

std::vector<Renderer::Variants> blendCandidates(const VulkanContext& context, const KernelRegistry& registry) {
  const Renderer::Variants plain = Renderer::Variants::forDevice(context, registry);
  std::vector<Renderer::Variants> candidates = {plain};
  constexpr uint32_t kLeastSubgroup = 8;  // of the kernels by pairs
  if (plain.forward != "rasterize_forward" || context.info().subgroupSize < kLeastSubgroup) return candidates;
  Renderer::Variants pairs = plain;
  pairs.forward = "rasterize_forward_pairs";
  if (!registry.runs(pairs.forward)) return candidates;
  candidates.push_back(pairs);
  pairs.backward = formatText("rasterize_backward_pairs:NATIVE_ATOMIC=%d", context.info().floatAtomics ? 1 : 0);
  if (registry.runs(pairs.backward)) candidates.push_back(pairs);
  return candidates;
}

std::vector<BlendFinding> checkBlends(VulkanContext& context, KernelRegistry& registry,
                                      const std::vector<Renderer::Variants>& candidates) {
  Scene scene(context, kEdges[0], 0);
  std::vector<BlendFinding> findings;
  for (const Renderer::Variants& variants : candidates) {
    BlendFinding& finding = findings.emplace_back(BlendFinding{variants});
    try {
      Side side(context, registry, variants, scene);
      finding.sumError = sumErrorOf(side, scene.set);
    } catch (const DeviceLost&) {
      throw;
    } catch (const std::runtime_error& e) {
      if (findings.size() == 1) throw;  // what every device runs: nothing can take its place
      finding.sumError = std::numeric_limits<double>::quiet_NaN();
      finding.failure = e.what();
    }
  }
  return findings;
}

void timeBlends(VulkanContext& context, KernelRegistry& registry, std::vector<BlendFinding>& findings) {
  const std::unique_ptr<Scene> scene = sceneFor(context, registry, findings);
  std::vector<std::unique_ptr<Side>> sides;
  std::vector<Results> results;
  for (BlendFinding& finding : findings) {
    sides.push_back(std::make_unique<Side>(context, registry, finding.variants, *scene));
    sides.back()->frame();
    results.emplace_back(*sides.back());
    finding.alike = sameResults(results.front(), results.back());
  }
  double total = 0;
  for (int frames = 0; frames < kMinFrames || (frames < kMaxFrames && total < kTimedMs); ++frames) {
    for (size_t i = 0; i < sides.size(); ++i) {
      const double milliseconds = sides[i]->frame();
      findings[i].milliseconds = std::min(findings[i].milliseconds, milliseconds);
      if (i == 0) total += milliseconds;
    }
  }
}

Renderer::Variants variantsByTrial(VulkanContext& context, KernelRegistry& registry, LogStore& log) {
  Renderer::Variants variants = Renderer::Variants::forDevice(context, registry);
  const auto forward = registry.chosenVariant("rasterize_forward");
  const auto backward = registry.chosenVariant("rasterize_backward");
  if (forward && backward) {
    // The lists and the loss go with the kernels of software drivers, which only forDevice() names.
    if (*forward != variants.forward && variants.sorts == Renderer::Sorts::Runs) {
      variants.loss = LossKernels::Steps;
      variants.sorts = Renderer::Sorts::Scans;
    }
    variants.forward = *forward;
    variants.backward = *backward;
    return variants;
  }
  variants = fastestOf(context, registry, soundBlends(context, registry, log), log);
  registry.chooseVariant("rasterize_forward", variants.forward);
  registry.chooseVariant("rasterize_backward", variants.backward);
  return variants;
}

}  // namespace quor::gs
