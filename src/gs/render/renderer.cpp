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

struct ScaledPush {
  uint32_t count;
  float factor;
};
static_assert(sizeof(ScaledPush) == 8);

struct RangesPush {
  uint32_t instances, tiles;
};
struct RasterPush {
  uint32_t width, height, tilesX, reserved;
};
struct BackgroundPush {
  float red, green, blue;
  uint32_t pixels;
};
struct ActivationPush {
  uint32_t count;
  float opacityWeight, scaleWeight;
};
static_assert(sizeof(RasterPush) == 16 && sizeof(BackgroundPush) == 16 && sizeof(ActivationPush) == 12);

}  // namespace

Renderer::Variants Renderer::Variants::forDevice(const VulkanContext& context, const KernelRegistry& registry) {
  const DeviceInfo& device = context.info();
  const bool wide = device.deviceType == VK_PHYSICAL_DEVICE_TYPE_CPU && device.subgroupShuffle &&
                    device.subgroupSize == 8 && device.floatAtomics;
  if (wide) return {"rasterize_forward_wide", "rasterize_backward_wide", true, true};
  return {"rasterize_forward", registry.backwardKernelName()};
}

bool Renderer::runsPairs(const VulkanContext& context) {
  const DeviceInfo& device = context.info();
  return device.subgroupShuffle && device.subgroupSize >= 8 && device.floatAtomics;
}

Renderer::Renderer(VulkanContext& context, KernelRegistry& registry, Mode mode)
    : Renderer(context, Variants::forDevice(context, registry), mode) {}

Renderer::Renderer(VulkanContext& context, Variants variants, Mode mode)
    : context_(context),
      mode_(mode),
      variants_(std::move(variants)),
      sorter_(context),
      runSorter_(context),
      scanner_(context),
      loss_(context, variants_.stripLoss),
      total_(context, sizeof(uint32_t), BufferKind::Readback, "instance count") {}

std::vector<std::string> Renderer::kernelNames() const {
  std::vector<std::string> names = {"activate",   "preprocess_forward", "depth_keys",      "bin_count",
                                    "bin_write",  "tile_ranges",        "radix_hist",      "radix_scatter",
                                    "scan_block", "scan_add",           variants_.forward, "composite_background"};
  if (variants_.runSorts) names.insert(names.end(), {"radix_runs_count", "radix_runs_scatter", "scan_runs"});
  if (mode_ == Mode::Training) {
    for (std::string& name : loss_.kernelNames()) names.push_back(std::move(name));
    names.insert(names.end(), {"preprocess_backward", "activation_backward"});
    names.push_back(variants_.backward);
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
  return variants_.runSorts && count <= kMaxByRuns;
}

bool Renderer::sort(ComputeStream& stream, const SortPair& in, const SortPair& partner, uint32_t count,
                    uint32_t keyBits) {
  const auto with = [&](auto& sorter) {
    return sorter.sort(stream, *in.keys, *in.values, *partner.keys, *partner.values, count, keyBits);
  };
  return sortsByRuns(count) ? with(runSorter_) : with(sorter_);
}

void Renderer::reserveSort(uint32_t count) {
  if (variants_.runSorts) runSorter_.reserve(std::min(count, kMaxByRuns));
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

// The gradients of the SH coefficients are made when the lists are done with, and are the largest.
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
  float* rows[3] = {camera_.row0, camera_.row1, camera_.row2};
  for (size_t r = 0; r < 3; ++r) {
    for (size_t c = 0; c < 3; ++c) rows[r][c] = static_cast<float>(camera.rotation[3 * r + c]);
    rows[r][3] = static_cast<float>(camera.translation[r]);
    camera_.centre[r] = static_cast<float>(centre[r]);
  }
  const double intrinsics[4] = {camera.fx, camera.fy, camera.cx, camera.cy};
  for (size_t k = 0; k < 4; ++k) camera_.intrinsics[k] = static_cast<float>(intrinsics[k]);
  camera_.range[0] = nearPlane;
  const uint32_t w = static_cast<uint32_t>(width_), h = static_cast<uint32_t>(height_);
  const uint32_t size[4] = {n, w, h, static_cast<uint32_t>(std::clamp(shDegree, 0, 3))};
  std::copy(std::begin(size), std::end(size), camera_.size);
  bin_ = {n, w, h, kTile, tilesX_, tilesY_, RunSorter::runsFor(n), 0};

  stream.mark("projection");
  const auto activated = {&splats.value(kScales), &splats.value(kOpacities), static_cast<const GpuBuffer*>(&scale_),
                          static_cast<const GpuBuffer*>(&opacity_)};
  if (splatScale_ == 1.0f) {
    stream.dispatch1D("activate", activated, n, n);
  } else {
    stream.dispatch1D("activate_scaled", activated, ScaledPush{n, splatScale_}, n);
  }
  stream.dispatch1D("preprocess_forward",
                    {&splats.value(kPositions), &scale_, &splats.value(kRotations), &opacity_, &splats.value(kShDc),
                     &splats.value(kShRest), &mean_, &conic_, &colour_, &depth_, &halfExtent_, &visible_},
                    camera_, n);
  stream.mark("depth sort");
  stream.dispatch1D("depth_keys", {&depth_, &visible_, &depthKey(), &orderBegun()}, n, n);
  orderInPartner_ = sort(stream, {&depthKey(), &orderBegun()}, {&depthKeyPartner(), &orderPartner()}, n, 32);
  countInstances(stream);
  stream.submit();
  instances_ = *static_cast<const uint32_t*>(total_.mapped());
  reserveInstances(std::max(instances_, 1u));
  chooseKeyPartner(splats);
}

void Renderer::countInstances(ComputeStream& stream) {
  stream.mark("tile lists");
  const uint32_t n = bin_.count;
  stream.dispatch1D("bin_count", {&order(), &mean_, &conic_, &opacity_, &halfExtent_, &visible_, &tileCount()}, bin_,
                    n);
  stream.fill(tileCount(), 0, sizeof(uint32_t), n * sizeof(uint32_t));
  scanner_.scan(stream, tileCount(), n + 1);
  stream.copy(tileCount(), total_, sizeof(uint32_t), n * sizeof(uint32_t));
}

void Renderer::sortIntoTiles(ComputeStream& stream) {
  stream.mark("tile lists");
  const uint32_t tiles = tilesX_ * tilesY_;
  stream.dispatch1D("bin_write",
                    {&order(), &mean_, &conic_, &opacity_, &halfExtent_, &visible_, &tileCount(), &tileKey_, &splatId_},
                    bin_, bin_.count);
  stream.mark("tile sort");
  const uint32_t bits = static_cast<uint32_t>(std::bit_width(std::max(tiles, 2u) - 1));
  const GpuBuffer* keys = &tileKey_;
  if (sort(stream, {keys, &splatId_}, {keyPartner_, &splatIdPartner_}, instances_, bits)) {
    keys = keyPartner_;
    std::swap(splatId_, splatIdPartner_);
  }
  stream.dispatch1D("tile_ranges", {keys, &tileStart_}, RangesPush{instances_, tiles}, tiles + 1);
}

void Renderer::rasterize(ComputeStream& stream, const std::array<float, 3>& background) {
  background_ = background;
  sortIntoTiles(stream);

  stream.mark("forward");
  const RasterPush push = {bin_.width, bin_.height, tilesX_, 0};
  stream.dispatch(variants_.forward,
                  {&tileStart_, &splatId_, &mean_, &conic_, &opacity_, &colour_, &image_, &alpha_, &transmittance_,
                   &lastContributor_},
                  push, tilesX_, tilesY_, 1);
  if (background != std::array<float, 3>{0, 0, 0}) {
    const uint32_t pixels = bin_.width * bin_.height;
    stream.dispatch1D("composite_background", {&image_, &alpha_},
                      BackgroundPush{background[0], background[1], background[2], pixels}, pixels);
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
  stream.dispatch(variants_.backward,
                  {&tileStart_, &splatId_, &mean_, &conic_, &opacity_, &colour_, &transmittance_, &lastContributor_,
                   &loss_.imageGradient(), &loss_.alphaGradient(), &dMean_, &dConic_, &dOpacity_, &dColour_},
                  RasterPush{bin_.width, bin_.height, tilesX_, 0}, tilesX_, tilesY_, 1);

  stream.mark("projection backward");
  stream.dispatch1D(
      "preprocess_backward",
      {&splats.value(kPositions), &scale_, &splats.value(kRotations), &splats.value(kShDc), &splats.value(kShRest),
       &visible_, &dMean_, &dConic_, &dColour_, &splats.gradient(kPositions), &splats.gradient(kScales),
       &splats.gradient(kRotations), &splats.gradient(kShDc), &splats.gradient(kShRest)},
      camera_, n);
  const GpuBuffer& dScale = splats.gradient(kScales);
  stream.dispatch1D("activation_backward",
                    {&scale_, &opacity_, &dScale, &dOpacity_, &dScale, &splats.gradient(kOpacities)},
                    ActivationPush{n, regularisers.opacity, regularisers.scale}, n);
}

ImageScores Renderer::score(ComputeStream& stream, const GpuBuffer& photo) {
  requireTraining();
  return loss_.score(stream, {image_, alpha_, width_, height_}, photo);
}

}  // namespace quor::gs
