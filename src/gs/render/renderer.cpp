#include "gs/render/renderer.h"

#include <algorithm>
#include <bit>
#include <stdexcept>
#include <utility>

#include "gpu/device/vulkan_context.h"
#include "gs/render/kernels/include/shared_constants.h"

namespace quor::gs {
namespace {

constexpr uint32_t kTile = TILE_SIZE;

uint32_t tilesOf(int pixels) {
  return (static_cast<uint32_t>(pixels) + kTile - 1) / kTile;
}

constexpr uint32_t kMaxByRuns = 4'000'000;

// The projection kernels share one push block, and so do the two that make the lists.
template <class To, class From>
typename To::Push samePush(const From& push) {
  static_assert(sizeof(typename To::Push) == sizeof(From));
  return std::bit_cast<typename To::Push>(push);
}

}  // namespace

Renderer::Variants Renderer::Variants::forDevice(const VulkanContext& context, const KernelRegistry& registry) {
  const DeviceInfo& device = context.info();
  // Their subgroups are of exactly eight, which SPIR-V cannot say.
  const bool wide = device.deviceType == VK_PHYSICAL_DEVICE_TYPE_CPU && device.subgroupSize == 8 &&
                    registry.runs("rasterize_backward_wide") && registry.runs("loss_strips");
  if (wide) return forSoftware();
  if (device.deviceType != VK_PHYSICAL_DEVICE_TYPE_CPU) return forGpu(context, registry);
  return {"rasterize_forward", registry.backwardKernelName()};  // shared memory and barriers cost most there
}

Renderer::Variants Renderer::Variants::forGpu(const VulkanContext& context, const KernelRegistry& registry) {
  Variants plain = {"rasterize_forward", registry.backwardKernelName()};
  if (registry.runs("ssim_tiles") && registry.runs("loss_tiles")) plain.loss = LossKernels::Tiles;
  if (registry.runs("radix_ballot_scatter") && context.info().subgroupSize >= 8) plain.sorts = Sorts::Ballots;
  plain.shInOptimiser = true;
  return plain;
}

Renderer::Variants Renderer::Variants::forSoftware() {
  return {"rasterize_forward_wide", "rasterize_backward_wide", LossKernels::Strips, Sorts::Runs};
}

Renderer::Renderer(VulkanContext& context, KernelRegistry& registry, Mode mode)
    : Renderer(context, Variants::forDevice(context, registry), mode) {}

Renderer::Renderer(VulkanContext& context, Variants variants, Mode mode)
    : context_(context),
      mode_(mode),
      variants_(std::move(variants)),
      sorter_(context, variants_.sorts == Sorts::Ballots ? RadixSorter::Ranks::Ballots : RadixSorter::Ranks::Scans),
      runSorter_(context),
      scanner_(context),
      loss_(context, variants_.loss),
      total_(context, sizeof(uint32_t), BufferKind::Readback, "instance count") {}

std::vector<std::string> Renderer::kernelNames(const Variants& variants, Mode mode) {
  std::vector<std::string> names = {"activate",   "preprocess_forward", "depth_keys",     "bin_count",
                                    "bin_write",  "tile_ranges",        "radix_hist",     "radix_scatter",
                                    "scan_block", "scan_add",           variants.forward, "composite_background"};
  if (variants.sorts == Sorts::Runs) {
    names.insert(names.end(), {"radix_runs_count", "radix_runs_scatter", "scan_runs"});
  } else if (variants.sorts == Sorts::Ballots) {
    names.insert(names.end(), {"radix_ballot_hist", "radix_ballot_scatter"});
  }
  if (mode == Mode::Training) {
    for (std::string& name : ImageLoss::kernelNames(variants.loss)) names.push_back(std::move(name));
    names.insert(names.end(),
                 {variants.shInOptimiser ? "preprocess_backward_no_sh" : "preprocess_backward", "activation_backward"});
    names.push_back(variants.backward);
  }
  return names;
}

void Renderer::reserve(uint32_t splats, int width, int height) {
  const auto make = [&](uint64_t words, const char* name) {
    return GpuBuffer(context_, std::max<uint64_t>(words, 1) * 4, BufferKind::Device, name);
  };
  if (splats > splatRoom_) {
    const uint64_t n = splatRoom_ = splats;
    scale_ = make(3 * n, "activated scales");
    opacity_ = make(n, "activated opacities");
    mean_ = make(2 * n, "screen means");
    conic_ = make(3 * n, "conics");
    colour_ = make(3 * n, "colours");
    depth_ = make(n, "depths");
    halfExtent_ = make(2 * n, "half-extents");
    visible_ = make(n, "visibility");
    reserveSort(splats);
    scanner_.reserve(n + 1);
    const bool training = mode_ == Mode::Training;
    dMean_ = make(training ? 2 * n : n, "screen mean gradient, depth keys");
    dConic_ = make(training ? 3 * n : n + 1, "conic gradient, tile counts");
    dOpacity_ = make(n, "opacity gradient, depth order");
    dColour_ = make(training ? 3 * n : n, "colour gradient, depth order");
  }
  const uint64_t pixels = static_cast<uint64_t>(width) * static_cast<uint64_t>(height);
  if (pixels > pixelRoom_) {
    pixelRoom_ = pixels;
    image_ = make(3 * pixels, "image");
    alpha_ = make(pixels, "accumulated opacity");
    transmittance_ = make(pixels, "transmittance");
    lastContributor_ = make(pixels, "last contributor");
  }
  const uint32_t tiles = tilesOf(width) * tilesOf(height);
  if (tiles > tileRoom_) {
    tileRoom_ = tiles;
    tileStart_ = make(uint64_t{tiles} + 1, "tile starts");
  }
  if (mode_ == Mode::Training) loss_.reserve(pixels);
}

// An invocation walks a run by itself, and llvmpipe ends its loops after 65 535 turns.
bool Renderer::sortsByRuns(uint32_t count) const {
  return variants_.sorts == Sorts::Runs && count <= kMaxByRuns;
}

bool Renderer::sort(ComputeStream& stream, const SortPair& in, const SortPair& partner, uint32_t count,
                    uint32_t keyBits) {
  const auto with = [&](auto& sorter) {
    return sorter.sort(stream, *in.keys, *in.values, *partner.keys, *partner.values, count, keyBits);
  };
  return sortsByRuns(count) ? with(runSorter_) : with(sorter_);
}

void Renderer::reserveSort(uint32_t count) {
  if (variants_.sorts == Sorts::Runs) runSorter_.reserve(std::min(count, kMaxByRuns));
  if (!sortsByRuns(count)) sorter_.reserve(count);
}

void Renderer::reserveInstances(uint32_t instances) {
  if (instances <= instanceRoom_) return;
  instanceRoom_ = static_cast<uint32_t>(std::min<uint64_t>(instances + instances / 4ull + 4096, UINT32_MAX / 4));
  if (instances > instanceRoom_) throw std::runtime_error("The scene lists too many splats in one view.");
  reserveSort(instanceRoom_);
  tileKeyPartner_ = GpuBuffer();
  for (GpuBuffer* buffer : {&tileKey_, &splatId_, &splatIdPartner_}) {
    *buffer = GpuBuffer();
    *buffer = GpuBuffer(context_, instanceRoom_ * sizeof(uint32_t), BufferKind::Device, "tile instances");
  }
}

// The gradient of the SH coefficients is the largest buffer that nothing uses while the lists are sorted.
void Renderer::chooseKeyPartner(const SplatStore& splats) {
  const uint64_t needed = instanceRoom_ * sizeof(uint32_t);
  keyPartner_ = &splats.gradient(kShRest);
  if (keyPartner_->size() >= needed) return;
  if (tileKeyPartner_.size() < needed) {
    tileKeyPartner_ = GpuBuffer(context_, needed, BufferKind::Device, "tile instances");
  }
  keyPartner_ = &tileKeyPartner_;
}

void Renderer::project(ComputeStream& stream, const SplatStore& splats, const Camera& camera, int shDegree,
                       float nearPlane) {
  const uint32_t n = splats.count();
  if (n > splatRoom_) throw std::logic_error("Renderer::project beyond reserved gaussians");
  width_ = camera.width;
  height_ = camera.height;
  tilesX_ = tilesOf(width_);
  tilesY_ = tilesOf(height_);
  if (static_cast<uint64_t>(width_) * static_cast<uint64_t>(height_) > pixelRoom_ || tilesX_ * tilesY_ > tileRoom_) {
    throw std::logic_error("Renderer: image too large");
  }

  const auto centre = camera.centre();
  kernels::vec4* rows[3] = {&camera_.row0, &camera_.row1, &camera_.row2};
  for (size_t r = 0; r < 3; ++r) {
    for (size_t c = 0; c < 3; ++c) (*rows[r])[c] = static_cast<float>(camera.rotation[3 * r + c]);
    (*rows[r])[3] = static_cast<float>(camera.translation[r]);
    camera_.centre[r] = static_cast<float>(centre[r]);
  }
  const double intrinsics[4] = {camera.fx, camera.fy, camera.cx, camera.cy};
  for (size_t k = 0; k < 4; ++k) camera_.intrinsics[k] = static_cast<float>(intrinsics[k]);
  camera_.range[0] = nearPlane;
  const uint32_t w = static_cast<uint32_t>(width_), h = static_cast<uint32_t>(height_);
  camera_.size = {n, w, h, static_cast<uint32_t>(std::clamp(shDegree, 0, 3))};
  bin_ = {n, w, h, kTile, tilesX_, tilesY_, 0, 0};

  stream.mark("projection");
  activate(stream, splats);
  stream.dispatch1D(kernels::PreprocessForward{.position = &splats.value(kPositions),
                                               .scale = &scale_,
                                               .rotation = &splats.value(kRotations),
                                               .opacity = &opacity_,
                                               .shDc = &splats.value(kShDc),
                                               .shRest = &splats.value(kShRest),
                                               .mean = &mean_,
                                               .conic = &conic_,
                                               .colour = &colour_,
                                               .depth = &depth_,
                                               .halfExtent = &halfExtent_,
                                               .visible = &visible_},
                    camera_, n);
  stream.mark("depth sort");
  stream.dispatch1D(
      kernels::DepthKeys{.depth = &depth_, .visible = &visible_, .key = &depthKey(), .value = &orderBegun()}, {n}, n);
  orderInPartner_ = sort(stream, {&depthKey(), &orderBegun()}, {&depthKeyPartner(), &orderPartner()}, n, 32);
  countInstances(stream);
  stream.submit();
  instances_ = *static_cast<const uint32_t*>(total_.mapped());
  reserveInstances(std::max(instances_, 1u));
  chooseKeyPartner(splats);
}

void Renderer::activate(ComputeStream& stream, const SplatStore& splats) {
  const uint32_t n = bin_.count;
  const GpuBuffer &logScale = splats.value(kScales), &logit = splats.value(kOpacities);
  if (splatScale_ == 1.0f) {
    stream.dispatch1D(kernels::Activate{.logScale = &logScale, .logit = &logit, .scale = &scale_, .opacity = &opacity_},
                      {n}, n);
  } else {
    stream.dispatch1D(
        kernels::ActivateScaled{.logScale = &logScale, .logit = &logit, .scale = &scale_, .opacity = &opacity_},
        {n, splatScale_}, n);
  }
}

void Renderer::countInstances(ComputeStream& stream) {
  stream.mark("tile lists");
  const uint32_t n = bin_.count;
  stream.dispatch1D(kernels::BinCount{.order = &order(),
                                      .mean = &mean_,
                                      .conic = &conic_,
                                      .opacity = &opacity_,
                                      .halfExtent = &halfExtent_,
                                      .visible = &visible_,
                                      .tileCount = &tileCount()},
                    bin_, n);
  stream.fill(tileCount(), 0, sizeof(uint32_t), n * sizeof(uint32_t));
  scanner_.scan(stream, tileCount(), n + 1);
  stream.copy(tileCount(), total_, sizeof(uint32_t), n * sizeof(uint32_t));
}

void Renderer::sortIntoTiles(ComputeStream& stream) {
  stream.mark("tile lists");
  const uint32_t tiles = tilesX_ * tilesY_;
  stream.dispatch1D(kernels::BinWrite{.order = &order(),
                                      .mean = &mean_,
                                      .conic = &conic_,
                                      .opacity = &opacity_,
                                      .halfExtent = &halfExtent_,
                                      .visible = &visible_,
                                      .offset = &tileCount(),
                                      .tileKey = &tileKey_,
                                      .splatId = &splatId_},
                    samePush<kernels::BinWrite>(bin_), bin_.count);
  stream.mark("tile sort");
  const uint32_t bits = static_cast<uint32_t>(std::bit_width(std::max(tiles, 2u) - 1));
  const GpuBuffer* keys = &tileKey_;
  if (sort(stream, {keys, &splatId_}, {keyPartner_, &splatIdPartner_}, instances_, bits)) {
    keys = keyPartner_;
    std::swap(splatId_, splatIdPartner_);
  }
  stream.dispatch1D(kernels::TileRanges{.tileKey = keys, .start = &tileStart_}, {instances_, tiles}, tiles + 1);
}

void Renderer::rasterize(ComputeStream& stream, const std::array<float, 3>& background) {
  background_ = background;
  sortIntoTiles(stream);

  stream.mark("forward");
  stream.dispatch(kernels::RasterizeForward{.start = &tileStart_,
                                            .splatId = &splatId_,
                                            .mean = &mean_,
                                            .conic = &conic_,
                                            .opacity = &opacity_,
                                            .colour = &colour_,
                                            .image = &image_,
                                            .alpha = &alpha_,
                                            .transmittance = &transmittance_,
                                            .lastContributor = &lastContributor_},
                  {bin_.width, bin_.height, tilesX_, 0}, tilesX_, tilesY_, 1, variants_.forward);
  if (background != std::array<float, 3>{0, 0, 0}) {
    const uint32_t pixels = bin_.width * bin_.height;
    stream.dispatch1D(kernels::CompositeBackground{.image = &image_, .alpha = &alpha_},
                      {background[0], background[1], background[2], pixels}, pixels);
  }
}

void Renderer::requireTraining() const {
  if (mode_ != Mode::Training) throw std::logic_error("lossAndBackward on a render-only Renderer");
}

void Renderer::lossAndBackward(ComputeStream& stream, const SplatStore& splats, const GpuBuffer& photo,
                               const LossScales& scales, const Regularisers& regularisers, bool withScore) {
  requireTraining();
  const uint32_t n = bin_.count;
  stream.mark("loss");
  const bool composited = background_ != std::array<float, 3>{0, 0, 0};
  loss_.backward(stream, {image_, alpha_, width_, height_}, photo, scales, background_.data(), composited, withScore);

  stream.mark("backward");
  for (const auto& [buffer, width] : {std::pair(&dMean_, 2u), {&dConic_, 3u}, {&dOpacity_, 1u}, {&dColour_, 3u}}) {
    stream.fill(*buffer, 0, static_cast<uint64_t>(n) * width * sizeof(float));
  }
  stream.dispatch(kernels::RasterizeBackward{.start = &tileStart_,
                                             .splatId = &splatId_,
                                             .mean = &mean_,
                                             .conic = &conic_,
                                             .opacity = &opacity_,
                                             .colour = &colour_,
                                             .transmittance = &transmittance_,
                                             .lastContributor = &lastContributor_,
                                             .dImage = &loss_.imageGradient(),
                                             .dAlpha = &loss_.alphaGradient(),
                                             .dMean = &dMean_,
                                             .dConic = &dConic_,
                                             .dOpacity = &dOpacity_,
                                             .dColour = &dColour_},
                  {bin_.width, bin_.height, tilesX_, 0}, tilesX_, tilesY_, 1, variants_.backward);

  stream.mark("projection backward");
  const auto projected = [&](auto kernel) {
    kernel.position = &splats.value(kPositions);
    kernel.scale = &scale_;
    kernel.rotation = &splats.value(kRotations);
    kernel.shDc = &splats.value(kShDc);
    kernel.shRest = &splats.value(kShRest);
    kernel.visible = &visible_;
    kernel.dMean = &dMean_;
    kernel.dConic = &dConic_;
    kernel.dColour = &dColour_;
    kernel.dPosition = &splats.gradient(kPositions);
    kernel.dScale = &splats.gradient(kScales);
    kernel.dRotation = &splats.gradient(kRotations);
    kernel.dShDc = &splats.gradient(kShDc);
    return kernel;
  };
  if (!variants_.shInOptimiser) {
    auto kernel = projected(kernels::PreprocessBackward());
    kernel.dShRest = &splats.gradient(kShRest);
    stream.dispatch1D(kernel, samePush<kernels::PreprocessBackward>(camera_), n);
  } else {
    stream.dispatch1D(projected(kernels::PreprocessBackwardNoSh()), samePush<kernels::PreprocessBackwardNoSh>(camera_),
                      n);
  }
  const GpuBuffer& dScale = splats.gradient(kScales);
  stream.dispatch1D(kernels::ActivationBackward{.scale = &scale_,
                                                .opacity = &opacity_,
                                                .dScale = &dScale,
                                                .dOpacity = &dOpacity_,
                                                .dLogScale = &dScale,
                                                .dLogit = &splats.gradient(kOpacities)},
                    {n, regularisers.opacity, regularisers.scale}, n);
}

ImageScores Renderer::score(ComputeStream& stream, const GpuBuffer& photo) {
  requireTraining();
  return loss_.score(stream, {image_, alpha_, width_, height_}, photo);
}

}  // namespace quor::gs
