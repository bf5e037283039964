#include "gs/image_loss.h"

#include <algorithm>
#include <cmath>

#include "gpu/vulkan_context.h"

namespace quor::gs {
namespace {

struct SizePush {
  uint32_t width, height;
};
struct BlurPush {
  uint32_t width, height, axis, planes;
};
struct ColumnsPush {
  uint32_t width, height;
  float scale;
};
struct TailPush {
  uint32_t pixels;
  float scale;
};
struct GradPush {
  uint32_t pixels;
  float l1Scale, red, green, blue;
  uint32_t composited;
};
static_assert(sizeof(BlurPush) == 16 && sizeof(TailPush) == 8 && sizeof(GradPush) == 24);

constexpr uint32_t kPlanes = 15;
constexpr uint32_t kPartialItems = 256;

// Of the kernels that own runs of eight pixels: eight runs by eight lines a group.
constexpr uint32_t kRunGroup = 64, kRunLines = 8;
constexpr uint32_t kGradientPlanes = 9;

uint32_t groups(uint32_t items, uint32_t each) {
  return (items + each - 1) / each;
}

uint64_t partialGroups(uint64_t items) {
  return (items + kPartialItems - 1) / kPartialItems;
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
  target_ = make(3 * pixels, "target image");
  planes_ = make(kPlanes * pixels, "SSIM planes");
  planesPartner_ = make(kPlanes * pixels, "SSIM planes partner");
  dSsim_ = make(3 * pixels, "SSIM gradient");
  dImage_ = make(3 * pixels, "image gradient");
  dAccumulated_ = make(pixels, "accumulated opacity gradient");
  const uint64_t bytes = partialGroups(3 * pixels) * 3 * sizeof(float);
  partials_ = GpuBuffer(context_, bytes, BufferKind::Device, "loss partials");
  partialsOnHost_ = GpuBuffer(context_, bytes, BufferKind::Readback, "loss partials on the host");
}

std::vector<std::string> ImageLoss::kernelNames() const {
  if (wide_) {
    return {"u8_to_f32",     "ssim_rows_wide",          "ssim_columns_wide",
            "loss_partials", "ssim_gradient_rows_wide", "ssim_gradient_columns_wide",
            "loss_grad"};
  }
  return {"u8_to_f32",     "ssim_stack_blur_h",  "ssim_blur15",         "ssim_tail_forward",
          "loss_partials", "ssim_tail_backward", "ssim_chain_backward", "loss_grad"};
}

void ImageLoss::recordStatistics(ComputeStream& stream, const Frame& frame, const GpuBuffer& photo, float ssimScale) {
  const uint32_t w = static_cast<uint32_t>(frame.width), h = static_cast<uint32_t>(frame.height);
  stream.dispatch1D("u8_to_f32", {&photo, &target_}, 3 * w * h, 3 * w * h);
  if (wide_) {
    stream.dispatch("ssim_rows_wide", {&frame.image, &target_, &planes_}, SizePush{w, h}, groups(w, kRunGroup),
                    groups(h, kRunLines), 3);
    stream.dispatch("ssim_columns_wide", {&planes_, &planesPartner_, &dSsim_}, ColumnsPush{w, h, ssimScale},
                    groups(w, kRunLines), groups(h, kRunGroup), 3);
    return;
  }
  const uint32_t gx = groups(w, 16), gy = groups(h, 16);
  stream.dispatch("ssim_stack_blur_h", {&frame.image, &target_, &planes_}, SizePush{w, h}, gx, gy, 3);
  stream.dispatch("ssim_blur15", {&planes_, &planesPartner_}, BlurPush{w, h, 1, kPlanes}, gx, gy, kPlanes);
}

// From the gradients of the statistics back to the image.
void ImageLoss::recordSsimGradient(ComputeStream& stream, const Frame& frame, float ssimScale) {
  const uint32_t w = static_cast<uint32_t>(frame.width), h = static_cast<uint32_t>(frame.height);
  if (wide_) {
    stream.dispatch("ssim_gradient_rows_wide", {&planesPartner_, &planes_}, SizePush{w, h}, groups(w, kRunGroup),
                    groups(h, kRunLines), kGradientPlanes);
    stream.dispatch("ssim_gradient_columns_wide", {&planes_, &frame.image, &target_, &dSsim_}, SizePush{w, h},
                    groups(w, kRunLines), groups(h, kRunGroup), 3);
    return;
  }
  const uint32_t gx = groups(w, 16), gy = groups(h, 16);
  stream.dispatch1D("ssim_tail_backward", {&planesPartner_, &planes_}, TailPush{w * h, ssimScale}, 3 * w * h);
  stream.dispatch("ssim_blur15", {&planes_, &planesPartner_}, BlurPush{w, h, 0, kPlanes}, gx, gy, kPlanes);
  stream.dispatch("ssim_blur15", {&planesPartner_, &planes_}, BlurPush{w, h, 1, kPlanes}, gx, gy, kPlanes);
  stream.dispatch("ssim_chain_backward", {&planes_, &frame.image, &target_, &dSsim_}, SizePush{w, h}, gx, gy, 3);
}

void ImageLoss::backward(ComputeStream& stream, const Frame& frame, const GpuBuffer& photo, const LossScales& scales,
                         const float background[3], bool composited, bool withScore) {
  recordStatistics(stream, frame, photo, scales.ssim);
  if (withScore) recordPartials(stream, frame);
  recordSsimGradient(stream, frame, scales.ssim);
  const uint32_t pixels = static_cast<uint32_t>(frame.width) * static_cast<uint32_t>(frame.height);
  const GradPush push = {pixels, scales.l1, background[0], background[1], background[2], composited ? 1u : 0u};
  stream.dispatch1D("loss_grad", {&frame.image, &target_, &dSsim_, &frame.accumulated, &dImage_, &dAccumulated_}, push,
                    pixels);
}

ImageScores ImageLoss::score(ComputeStream& stream, const Frame& frame, const GpuBuffer& photo) {
  recordStatistics(stream, frame, photo, 1.0f);
  recordPartials(stream, frame);
  stream.submit();
  return finishScore(frame.width, frame.height);
}

void ImageLoss::recordPartials(ComputeStream& stream, const Frame& frame) {
  const uint32_t pixels = static_cast<uint32_t>(frame.width) * static_cast<uint32_t>(frame.height);
  if (!wide_) stream.dispatch1D("ssim_tail_forward", {&planesPartner_, &dSsim_}, pixels, 3 * pixels);
  stream.dispatch1D("loss_partials", {&frame.image, &target_, &dSsim_, &partials_}, 3 * pixels, 3 * pixels);
  stream.copy(partials_, partialsOnHost_, partialGroups(uint64_t{3} * pixels) * 3 * sizeof(float));
}

ImageScores ImageLoss::finishScore(int width, int height) const {
  const uint64_t items = 3 * static_cast<uint64_t>(width) * static_cast<uint64_t>(height);
  const float* partial = static_cast<const float*>(partialsOnHost_.mapped());
  double sums[3] = {0, 0, 0};
  for (uint64_t i = 0; i < 3 * partialGroups(items); ++i) sums[i % 3] += static_cast<double>(partial[i]);
  const double count = static_cast<double>(items);
  return {sums[0] / count, sums[1] / count, sums[2] / count};
}

}  // namespace quor::gs
