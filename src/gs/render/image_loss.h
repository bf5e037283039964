// Compares a rendered image with its photograph on the GPU: L1, SSIM (Wang et al. 2004) and the gradient of both.
// Images are interleaved RGB floats, height x width x 3; photographs are packed bytes of the same order.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "gpu/compute/compute_stream.h"
#include "gpu/memory/gpu_buffer.h"

namespace quor::gs {

// The ways to compute the loss; all give the same results.
enum class LossKernels {
  Steps,   // a kernel for each step
  Strips,  // all in one pass, with subgroups of eight: for software drivers
  Tiles,   // two dispatches with shared memory: for GPUs
};

// At most: target, two sets of 15 planes, SSIM gradient or map, image gradient, opacity gradient.
inline constexpr uint64_t kLossBytesPerPixel = uint64_t{3 + 15 + 15 + 3 + 3 + 1} * 4;

// Factors of the summed terms: for L = (1 - w) mean L1 + w (1 - mean SSIM) over P pixels these are (1 - w) / (3 P) and
// -w / (3 P).
struct LossScales {
  float l1 = 0;
  float ssim = 0;
};
LossScales lossScales(float ssimWeight, int width, int height);

// Means over all pixels and channels.
struct ImageScores {
  double l1 = 0;
  double mse = 0;  // of the image clamped to 0..1
  double ssim = 0;
  double psnr() const;  // dB, at most 100
};

class ImageLoss {
 public:
  ImageLoss(VulkanContext& context, LossKernels kernels) : context_(context), kernels_(kernels) {}

  static std::vector<std::string> kernelNames(LossKernels kernels);

  void reserve(uint64_t pixels);

  struct Frame {
    const GpuBuffer& image;
    const GpuBuffer& alpha;
    int width;
    int height;
  };

  // Records the gradient of the scaled terms into imageGradient() and alphaGradient(). `composited` says whether
  // a background colour lies behind the image. With `withScore` the sums are recorded too, for finishScore().
  void backward(ComputeStream& stream, const Frame& frame, const GpuBuffer& photo, const LossScales& scales,
                const float background[3], bool composited, bool withScore);

  // Records the sums, submits and reads them.
  ImageScores score(ComputeStream& stream, const Frame& frame, const GpuBuffer& photo);

  // The sums that backward() recorded, after the submit.
  ImageScores finishScore(int width, int height) const;

  const GpuBuffer& imageGradient() const { return dImage_; }
  const GpuBuffer& alphaGradient() const { return dAlpha_; }

 private:
  // Everything but the gradient of accumulated opacity, in one pass.
  void recordStrips(ComputeStream& stream, const Frame& frame, const GpuBuffer& photo, const LossScales& scales);
  // In two, of which a score needs the first.
  void recordTiles(ComputeStream& stream, const Frame& frame, const GpuBuffer& photo, bool withSums);
  // Step by step.
  void recordStatistics(ComputeStream& stream, const Frame& frame, const GpuBuffer& photo);
  void recordBlur(ComputeStream& stream, const Frame& frame, const GpuBuffer& from, const GpuBuffer& to, int axis);
  void recordPartials(ComputeStream& stream, const Frame& frame);
  void recordSsimGradient(ComputeStream& stream, const Frame& frame, float ssimScale);
  void copyPartials(ComputeStream& stream, const Frame& frame);

  VulkanContext& context_;
  LossKernels kernels_;
  uint64_t pixelRoom_ = 0;
  GpuBuffer planes_;                          // not for strips
  GpuBuffer target_, planesPartner_, dSsim_;  // of the steps; the last also the SSIM map for scores
  GpuBuffer dImage_, dAlpha_;
  GpuBuffer partials_, partialsOnHost_;
};

}  // namespace quor::gs
