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

uint32_t groupsOf(int pixels) {
  return (static_cast<uint32_t>(pixels) + 15) / 16;
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

void ImageLoss::recordStatistics(ComputeStream& stream, const Frame& frame, const GpuBuffer& photo) {
  const uint32_t w = static_cast<uint32_t>(frame.width), h = static_cast<uint32_t>(frame.height);
  const uint32_t gx = groupsOf(frame.width), gy = groupsOf(frame.height);
  stream.dispatch1D("u8_to_f32", {&photo, &target_}, 3 * w * h, 3 * w * h);
  stream.dispatch("ssim_stack_blur_h", {&frame.image, &target_, &planes_}, SizePush{w, h}, gx, gy, 3);
  stream.dispatch("ssim_blur15", {&planes_, &planesPartner_}, BlurPush{w, h, 1, kPlanes}, gx, gy, kPlanes);
}

void ImageLoss::backward(ComputeStream& stream, const Frame& frame, const GpuBuffer& photo, const LossScales& scales,
                         const float background[3], bool composited, bool withScore) {
  const uint32_t w = static_cast<uint32_t>(frame.width), h = static_cast<uint32_t>(frame.height);
  const uint32_t gx = groupsOf(frame.width), gy = groupsOf(frame.height);
  recordStatistics(stream, frame, photo);
  if (withScore) recordScore(stream, frame);
  stream.dispatch1D("ssim_tail_backward", {&planesPartner_, &planes_}, TailPush{w * h, scales.ssim}, 3 * w * h);
  stream.dispatch("ssim_blur15", {&planes_, &planesPartner_}, BlurPush{w, h, 0, kPlanes}, gx, gy, kPlanes);
  stream.dispatch("ssim_blur15", {&planesPartner_, &planes_}, BlurPush{w, h, 1, kPlanes}, gx, gy, kPlanes);
  stream.dispatch("ssim_chain_backward", {&planes_, &frame.image, &target_, &dSsim_}, SizePush{w, h}, gx, gy, 3);
  const GradPush push = {w * h, scales.l1, background[0], background[1], background[2], composited ? 1u : 0u};
  stream.dispatch1D("loss_grad", {&frame.image, &target_, &dSsim_, &frame.accumulated, &dImage_, &dAccumulated_}, push,
                    w * h);
}

ImageScores ImageLoss::score(ComputeStream& stream, const Frame& frame, const GpuBuffer& photo) {
  recordStatistics(stream, frame, photo);
  recordScore(stream, frame);
  stream.submit();
  return finishScore(frame.width, frame.height);
}

void ImageLoss::recordScore(ComputeStream& stream, const Frame& frame) {
  const uint32_t pixels = static_cast<uint32_t>(frame.width) * static_cast<uint32_t>(frame.height);
  stream.dispatch1D("ssim_tail_forward", {&planesPartner_, &dSsim_}, pixels, 3 * pixels);
  stream.dispatch1D("loss_partials", {&frame.image, &target_, &dSsim_, &partials_}, 3 * pixels, 3 * pixels);
  stream.copy(partials_, partialsOnHost_, partialGroups(3 * pixels) * 3 * sizeof(float));
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
