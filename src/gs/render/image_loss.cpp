#include "gs/render/image_loss.h"

#include <algorithm>
#include <cmath>

#include "gpu/device/vulkan_context.h"
#include "gs/render/kernels/include/shared_constants.h"
#include "gs/render/kernels/interfaces.h"

namespace quor::gs {
namespace {

constexpr int kPlanes = 15, kTilePlanes = 9;
constexpr uint32_t kLossTile = 16;
// The axis of ssim_blur15.
constexpr int kAlongRows = 0, kAlongColumns = 1;
constexpr uint32_t kPartialItems = 256;

// Of loss_strips: the columns that a strip between two others writes, and about how many rows. Longer strips repeat
// less at their ends, more strips keep more cores busy.
constexpr uint32_t kStripOwned = 8 * LOSS_STRIP_COLUMNS - 2 * LOSS_STRIP_HALO;
constexpr uint32_t kStripRows = 192;

uint32_t groups(uint32_t items, uint32_t each) {
  return (items + each - 1) / each;
}

uint64_t partialGroups(uint64_t items) {
  return (items + kPartialItems - 1) / kPartialItems;
}

// How loss_strips cuts an image of this size: strips side by side, one below the other, and rows of each.
struct Strips {
  uint32_t across, down, rows;
  Strips(uint32_t width, uint32_t height) {
    const uint32_t ends = kStripOwned + 2 * LOSS_STRIP_HALO;  // no halo at the image's edges
    across = width <= ends ? 1 : 1 + groups(width - ends, kStripOwned);
    down = groups(height, kStripRows);
    rows = groups(height, down);
  }
};

// Groups whose sums finishScore() adds up, for an image of this size and at most for one of so many pixels.
uint64_t partialsOf(LossKernels kernels, int width, int height) {
  const uint32_t w = static_cast<uint32_t>(width), h = static_cast<uint32_t>(height);
  if (kernels == LossKernels::Steps) return partialGroups(uint64_t{3} * w * h);
  if (kernels == LossKernels::Tiles) return uint64_t{3} * groups(w, kLossTile) * groups(h, kLossTile);
  const Strips cut(w, h);
  return uint64_t{3} * cut.across * cut.down;
}
uint64_t mostPartials(uint64_t pixels) {
  return 3 * (pixels / 8 + 1);  // images of a few rows or columns are cut into the most
}

}  // namespace

LossScales lossScales(float ssimWeight, int width, int height) {
  const double count = 3.0 * width * height;
  return {static_cast<float>((1.0 - ssimWeight) / count), static_cast<float>(-ssimWeight / count)};
}

double ImageScores::psnr() const {
  return -10.0 * std::log10(std::max(mse, 1e-10));
}

void ImageLoss::reserve(uint64_t pixels) {
  if (pixels <= pixelRoom_) return;
  pixelRoom_ = pixels;
  const auto make = [&](uint64_t floats, const char* name) {
    return GpuBuffer(context_, floats * sizeof(float), BufferKind::Device, name);
  };
  if (kernels_ == LossKernels::Tiles) planes_ = make(kTilePlanes * pixels, "SSIM planes");
  if (kernels_ == LossKernels::Steps) {
    target_ = make(3 * pixels, "target image");
    planes_ = make(kPlanes * pixels, "SSIM planes");
    planesPartner_ = make(kPlanes * pixels, "SSIM planes partner");
    dSsim_ = make(3 * pixels, "SSIM gradient");
  }
  dImage_ = make(3 * pixels, "image gradient");
  dAlpha_ = make(pixels, "accumulated opacity gradient");
  const uint64_t bytes = mostPartials(pixels) * 3 * sizeof(float);
  partials_ = GpuBuffer(context_, bytes, BufferKind::Device, "loss partials");
  partialsOnHost_ = GpuBuffer(context_, bytes, BufferKind::Readback, "loss partials on the host");
}

std::vector<std::string> ImageLoss::kernelNames(LossKernels kernels) {
  if (kernels == LossKernels::Strips) return {"loss_strips", "alpha_gradient"};
  if (kernels == LossKernels::Tiles) return {"ssim_tiles", "loss_tiles"};
  return {"u8_to_f32",     "ssim_stack_blur_h",  "ssim_blur15",         "ssim_tail_forward",
          "loss_partials", "ssim_tail_backward", "ssim_chain_backward", "loss_grad"};
}

void ImageLoss::recordStrips(ComputeStream& stream, const Frame& frame, const GpuBuffer& photo,
                             const LossScales& scales) {
  const uint32_t w = static_cast<uint32_t>(frame.width), h = static_cast<uint32_t>(frame.height);
  const Strips cut(w, h);
  stream.dispatch(
      kernels::LossStrips{.rendered = &frame.image, .photo = &photo, .dImage = &dImage_, .partials = &partials_},
      {frame.width, frame.height, static_cast<int>(cut.rows), scales.l1, scales.ssim}, cut.across, cut.down, 3);
}

void ImageLoss::recordTiles(ComputeStream& stream, const Frame& frame, const GpuBuffer& photo, bool withSums) {
  stream.dispatch(
      kernels::SsimTiles{.rendered = &frame.image, .photo = &photo, .planes = &planes_, .partials = &partials_},
      {frame.width, frame.height, withSums ? 1u : 0u}, groups(static_cast<uint32_t>(frame.width), kLossTile),
      groups(static_cast<uint32_t>(frame.height), kLossTile), 3);
  if (withSums) copyPartials(stream, frame);
}

void ImageLoss::recordStatistics(ComputeStream& stream, const Frame& frame, const GpuBuffer& photo) {
  const uint32_t w = static_cast<uint32_t>(frame.width), h = static_cast<uint32_t>(frame.height);
  stream.dispatch1D(kernels::U8ToF32{.packedBytes = &photo, .value = &target_}, {3 * w * h}, 3 * w * h);
  stream.dispatch(kernels::SsimStackBlurH{.rendered = &frame.image, .target = &target_, .planes = &planes_},
                  {frame.width, frame.height}, groups(w, 16), groups(h, 16), 3);
  recordBlur(stream, frame, planes_, planesPartner_, kAlongColumns);
}

void ImageLoss::recordBlur(ComputeStream& stream, const Frame& frame, const GpuBuffer& from, const GpuBuffer& to,
                           int axis) {
  stream.dispatch(kernels::SsimBlur15{.from = &from, .to = &to}, {frame.width, frame.height, axis, kPlanes},
                  groups(static_cast<uint32_t>(frame.width), 16), groups(static_cast<uint32_t>(frame.height), 16),
                  kPlanes);
}

// From the statistics back to the image.
void ImageLoss::recordSsimGradient(ComputeStream& stream, const Frame& frame, float ssimScale) {
  const uint32_t w = static_cast<uint32_t>(frame.width), h = static_cast<uint32_t>(frame.height);
  stream.dispatch1D(kernels::SsimTailBackward{.planes = &planesPartner_, .gradients = &planes_}, {w * h, ssimScale},
                    3 * w * h);
  recordBlur(stream, frame, planes_, planesPartner_, kAlongRows);
  recordBlur(stream, frame, planesPartner_, planes_, kAlongColumns);
  stream.dispatch(
      kernels::SsimChainBackward{
          .gradients = &planes_, .rendered = &frame.image, .target = &target_, .dImage = &dSsim_},
      {w, h}, groups(w, 16), groups(h, 16), 3);
}

void ImageLoss::backward(ComputeStream& stream, const Frame& frame, const GpuBuffer& photo, const LossScales& scales,
                         const float background[3], bool composited, bool withScore) {
  const uint32_t pixels = static_cast<uint32_t>(frame.width) * static_cast<uint32_t>(frame.height);
  if (kernels_ == LossKernels::Tiles) {
    recordTiles(stream, frame, photo, withScore);
    stream.dispatch(kernels::LossTiles{.rendered = &frame.image,
                                       .photo = &photo,
                                       .planes = &planes_,
                                       .alpha = &frame.alpha,
                                       .dImage = &dImage_,
                                       .dAlpha = &dAlpha_},
                    {.width = frame.width,
                     .height = frame.height,
                     .l1Scale = scales.l1,
                     .ssimScale = scales.ssim,
                     .red = background[0],
                     .green = background[1],
                     .blue = background[2],
                     .composited = composited ? 1u : 0u},
                    groups(static_cast<uint32_t>(frame.width), kLossTile),
                    groups(static_cast<uint32_t>(frame.height), kLossTile), 1);
    return;
  }
  if (kernels_ == LossKernels::Strips) {
    recordStrips(stream, frame, photo, scales);
    if (composited) {
      stream.dispatch1D(kernels::AlphaGradient{.dImage = &dImage_, .alpha = &frame.alpha, .dAlpha = &dAlpha_},
                        {background[0], background[1], background[2], pixels}, pixels);
    } else {
      stream.fill(dAlpha_, 0, uint64_t{pixels} * sizeof(float));
    }
    if (withScore) copyPartials(stream, frame);
    return;
  }
  recordStatistics(stream, frame, photo);
  if (withScore) recordPartials(stream, frame);
  recordSsimGradient(stream, frame, scales.ssim);
  stream.dispatch1D(kernels::LossGrad{.rendered = &frame.image,
                                      .target = &target_,
                                      .dSsim = &dSsim_,
                                      .alpha = &frame.alpha,
                                      .dImage = &dImage_,
                                      .dAlpha = &dAlpha_},
                    {.pixels = pixels,
                     .l1Scale = scales.l1,
                     .red = background[0],
                     .green = background[1],
                     .blue = background[2],
                     .composited = composited ? 1u : 0u},
                    pixels);
}

ImageScores ImageLoss::score(ComputeStream& stream, const Frame& frame, const GpuBuffer& photo) {
  if (kernels_ == LossKernels::Strips) {
    recordStrips(stream, frame, photo, {});
    copyPartials(stream, frame);
  } else if (kernels_ == LossKernels::Tiles) {
    recordTiles(stream, frame, photo, true);
  } else {
    recordStatistics(stream, frame, photo);
    recordPartials(stream, frame);
  }
  stream.submit();
  return finishScore(frame.width, frame.height);
}

void ImageLoss::recordPartials(ComputeStream& stream, const Frame& frame) {
  const uint32_t pixels = static_cast<uint32_t>(frame.width) * static_cast<uint32_t>(frame.height);
  stream.dispatch1D(kernels::SsimTailForward{.planes = &planesPartner_, .map = &dSsim_}, {pixels}, 3 * pixels);
  stream.dispatch1D(
      kernels::LossPartials{.rendered = &frame.image, .target = &target_, .map = &dSsim_, .partials = &partials_},
      {3 * pixels}, 3 * pixels);
  copyPartials(stream, frame);
}

void ImageLoss::copyPartials(ComputeStream& stream, const Frame& frame) {
  stream.copy(partials_, partialsOnHost_, partialsOf(kernels_, frame.width, frame.height) * 3 * sizeof(float));
}

ImageScores ImageLoss::finishScore(int width, int height) const {
  const uint64_t items = 3 * static_cast<uint64_t>(width) * static_cast<uint64_t>(height);
  const float* partial = static_cast<const float*>(partialsOnHost_.mapped());
  double sums[3] = {0, 0, 0};
  for (uint64_t i = 0; i < 3 * partialsOf(kernels_, width, height); ++i) sums[i % 3] += static_cast<double>(partial[i]);
  const double count = static_cast<double>(items);
  return {sums[0] / count, sums[1] / count, sums[2] / count};
}

}  // namespace quor::gs
