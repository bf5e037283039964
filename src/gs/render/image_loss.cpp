#include "gs/render/image_loss.h"

#include <algorithm>
#include <cmath>

#include "gpu/device/vulkan_context.h"
#include "gs/render/kernels/include/shared_constants.h"

namespace quor::gs {
namespace {

struct SizePush {
  uint32_t width, height;
};
struct BlurPush {
  uint32_t width, height, axis, planes;
};
struct StripsPush {
  uint32_t width, height, rows;
  float l1Scale, ssimScale;
};
struct AccumulatedPush {
  float red, green, blue;
  uint32_t pixels;
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
static_assert(sizeof(BlurPush) == 16 && sizeof(TailPush) == 8 && sizeof(GradPush) == 24 && sizeof(StripsPush) == 20);

constexpr uint32_t kPlanes = 15;
constexpr uint32_t kPartialItems = 256;

// Of loss_strips: the columns that a strip between two others owns, and about how many rows it is long. Longer strips
// repeat less at their ends, more strips keep more cores busy.
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
    const uint32_t ends = kStripOwned + 2 * LOSS_STRIP_HALO;  // at the image's edges there is nothing to look over to
    across = width <= ends ? 1 : 1 + groups(width - ends, kStripOwned);
    down = groups(height, kStripRows);
    rows = groups(height, down);
  }
};

// Groups whose sums finishScore() adds up, for an image of this size and at most for one of so many pixels.
uint64_t partialsOf(bool strips, int width, int height) {
  const uint32_t w = static_cast<uint32_t>(width), h = static_cast<uint32_t>(height);
  const Strips cut(w, h);
  return strips ? uint64_t{3} * cut.across * cut.down : partialGroups(uint64_t{3} * w * h);
}
uint64_t mostPartials(uint64_t pixels) {
  return 3 * (pixels / 32 + 1);  // images of a single row or column are cut into the most
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
  if (!strips_) {
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

std::vector<std::string> ImageLoss::kernelNames() const {
  if (strips_) return {"loss_strips", "alpha_gradient"};
  return {"u8_to_f32",     "ssim_stack_blur_h",  "ssim_blur15",         "ssim_tail_forward",
          "loss_partials", "ssim_tail_backward", "ssim_chain_backward", "loss_grad"};
}

void ImageLoss::recordStrips(ComputeStream& stream, const Frame& frame, const GpuBuffer& photo,
                             const LossScales& scales) {
  const uint32_t w = static_cast<uint32_t>(frame.width), h = static_cast<uint32_t>(frame.height);
  const Strips cut(w, h);
  stream.dispatch("loss_strips", {&frame.image, &photo, &dImage_, &partials_},
                  StripsPush{w, h, cut.rows, scales.l1, scales.ssim}, cut.across, cut.down, 3);
}

void ImageLoss::recordStatistics(ComputeStream& stream, const Frame& frame, const GpuBuffer& photo) {
  const uint32_t w = static_cast<uint32_t>(frame.width), h = static_cast<uint32_t>(frame.height);
  const uint32_t gx = groups(w, 16), gy = groups(h, 16);
  stream.dispatch1D("u8_to_f32", {&photo, &target_}, 3 * w * h, 3 * w * h);
  stream.dispatch("ssim_stack_blur_h", {&frame.image, &target_, &planes_}, SizePush{w, h}, gx, gy, 3);
  stream.dispatch("ssim_blur15", {&planes_, &planesPartner_}, BlurPush{w, h, 1, kPlanes}, gx, gy, kPlanes);
}

// From the statistics back to the image.
void ImageLoss::recordSsimGradient(ComputeStream& stream, const Frame& frame, float ssimScale) {
  const uint32_t w = static_cast<uint32_t>(frame.width), h = static_cast<uint32_t>(frame.height);
  const uint32_t gx = groups(w, 16), gy = groups(h, 16);
  stream.dispatch1D("ssim_tail_backward", {&planesPartner_, &planes_}, TailPush{w * h, ssimScale}, 3 * w * h);
  stream.dispatch("ssim_blur15", {&planes_, &planesPartner_}, BlurPush{w, h, 0, kPlanes}, gx, gy, kPlanes);
  stream.dispatch("ssim_blur15", {&planesPartner_, &planes_}, BlurPush{w, h, 1, kPlanes}, gx, gy, kPlanes);
  stream.dispatch("ssim_chain_backward", {&planes_, &frame.image, &target_, &dSsim_}, SizePush{w, h}, gx, gy, 3);
}

void ImageLoss::backward(ComputeStream& stream, const Frame& frame, const GpuBuffer& photo, const LossScales& scales,
                         const float background[3], bool composited, bool withScore) {
  const uint32_t pixels = static_cast<uint32_t>(frame.width) * static_cast<uint32_t>(frame.height);
  if (strips_) {
    recordStrips(stream, frame, photo, scales);
    if (composited) {
      stream.dispatch1D("alpha_gradient", {&dImage_, &frame.alpha, &dAlpha_},
                        AccumulatedPush{background[0], background[1], background[2], pixels}, pixels);
    } else {
      stream.fill(dAlpha_, 0, uint64_t{pixels} * sizeof(float));
    }
    if (withScore) copyPartials(stream, frame);
    return;
  }
  recordStatistics(stream, frame, photo);
  if (withScore) recordPartials(stream, frame);
  recordSsimGradient(stream, frame, scales.ssim);
  const GradPush push = {pixels, scales.l1, background[0], background[1], background[2], composited ? 1u : 0u};
  stream.dispatch1D("loss_grad", {&frame.image, &target_, &dSsim_, &frame.alpha, &dImage_, &dAlpha_}, push, pixels);
}

ImageScores ImageLoss::score(ComputeStream& stream, const Frame& frame, const GpuBuffer& photo) {
  if (strips_) {
    recordStrips(stream, frame, photo, {});
    copyPartials(stream, frame);
  } else {
    recordStatistics(stream, frame, photo);
    recordPartials(stream, frame);
  }
  stream.submit();
  return finishScore(frame.width, frame.height);
}

void ImageLoss::recordPartials(ComputeStream& stream, const Frame& frame) {
  const uint32_t pixels = static_cast<uint32_t>(frame.width) * static_cast<uint32_t>(frame.height);
  stream.dispatch1D("ssim_tail_forward", {&planesPartner_, &dSsim_}, pixels, 3 * pixels);
  stream.dispatch1D("loss_partials", {&frame.image, &target_, &dSsim_, &partials_}, 3 * pixels, 3 * pixels);
  copyPartials(stream, frame);
}

void ImageLoss::copyPartials(ComputeStream& stream, const Frame& frame) {
  stream.copy(partials_, partialsOnHost_, partialsOf(strips_, frame.width, frame.height) * 3 * sizeof(float));
}

ImageScores ImageLoss::finishScore(int width, int height) const {
  const uint64_t items = 3 * static_cast<uint64_t>(width) * static_cast<uint64_t>(height);
  const float* partial = static_cast<const float*>(partialsOnHost_.mapped());
  double sums[3] = {0, 0, 0};
  for (uint64_t i = 0; i < 3 * partialsOf(strips_, width, height); ++i) sums[i % 3] += static_cast<double>(partial[i]);
  const double count = static_cast<double>(items);
  return {sums[0] / count, sums[1] / count, sums[2] / count};
}

}  // namespace quor::gs
