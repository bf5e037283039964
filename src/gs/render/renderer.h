// Turns splats and one camera into an image on the GPU, and for training scores that image and carries the gradients
// back to every parameter. Tile-based: splats are listed once for every tile of 16 x 16 pixels that they touch, the
// list is ordered by tile and front to back, and one work group blends each tile.
//
// A frame is project() (records and submits: the host needs the number of instances), rasterize() and, for training,
// lossAndBackward(); the last two only record. All sizes are made ahead by reserve(); only the instance list may still
// grow, by a quarter, when a view lists more than any before it.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <utility>

#include "gpu/compute/compute_stream.h"
#include "gpu/memory/gpu_buffer.h"
#include "gpu/sort/radix_sorter.h"
#include "gpu/sort/run_sorter.h"
#include "gpu/sort/scanner.h"
#include "gs/render/camera.h"
#include "gs/render/image_loss.h"
#include "gs/render/kernels/interfaces.h"
#include "gs/splats/splat_store.h"

namespace quor::gs {

// GPU bytes that a renderer for training takes per splat and per pixel, for budgeting.
inline constexpr uint64_t kRendererBytesPerSplat = uint64_t{25} * 4;
inline constexpr uint64_t kRendererBytesPerPixel = uint64_t{6} * 4 + kLossBytesPerPixel;

class Renderer {
 public:
  enum class Mode { RenderOnly, Training };

  // The kernels of which there are variants that give the same results. forDevice() goes by what the device offers:
  // software drivers with subgroups of eight get the kernels that are written for them, all else gets the plain ones.
  // variantsByTrial() in blend_trial.h also asks which are faster.
  enum class Sorts { Scans, Ballots, Runs };  // RadixSorter's two ways, RunSorter
  struct Variants {
    std::string forward;
    std::string backward;
    LossKernels loss = LossKernels::Steps;
    Sorts sorts = Sorts::Scans;
    bool shInOptimiser = false;  // adam_sh makes the gradients that it needs
    static Variants forDevice(const VulkanContext& context, const KernelRegistry& registry);
    static Variants forSoftware();
    static Variants forGpu(const VulkanContext& context, const KernelRegistry& registry);
  };

  Renderer(VulkanContext& context, KernelRegistry& registry, Mode mode);
  Renderer(VulkanContext& context, Variants variants, Mode mode);

  // Room for that many splats and images of that size; keeps what is large enough.
  void reserve(uint32_t splats, int width, int height);

  // Steps from the parameters to the scanned tile counts; submits and reads the number of instances. shDegree is the
  // active degree; splats nearer than nearPlane (world units, > 0) are culled.
  void project(ComputeStream& stream, const SplatStore& splats, const Camera& camera, int shDegree, float nearPlane);

  // The variant of rasterize_forward from the next rasterize() on.
  void setForward(std::string variant) { variants_.forward = std::move(variant); }

  // For looking at a scene: all scales times this from the next project() on.
  void setSplatScale(float factor) { splatScale_ = factor; }

  // Sorts the instances into tiles and blends them over the background, into image().
  void rasterize(ComputeStream& stream, const std::array<float, 3>& background);

  // Gradients of lossScale.l1 * sum |image - photo| + lossScale.ssim * sum SSIM (sums over pixels and channels) with
  // respect to every parameter, into the store's gradient buffers. The regularisers are those of activation_backward.
  // With `withScore`, loss().finishScore() has the frame's figures after the submit. Variants with shInOptimiser leave
  // the gradients of the SH coefficients above degree 0 to adam_sh.
  struct Regularisers {
    float opacity = 0;
    float scale = 0;
  };
  void lossAndBackward(ComputeStream& stream, const SplatStore& splats, const GpuBuffer& photo,
                       const LossScales& scales, const Regularisers& regularisers, bool withScore);

  // Sums of the image against the photograph, after rasterize(); submits.
  ImageScores score(ComputeStream& stream, const GpuBuffer& photo);

  const Variants& variants() const { return variants_; }
  // Of the last project().
  const kernels::vec4& cameraCentre() const { return camera_.centre; }
  int width() const { return width_; }
  int height() const { return height_; }
  uint32_t instances() const { return instances_; }
  const GpuBuffer& image() const { return image_; }                      // height x width x 3
  const GpuBuffer& alpha() const { return alpha_; }                      // height x width
  const GpuBuffer& lastContributor() const { return lastContributor_; }  // int, per pixel: list entries up to its last
  const GpuBuffer& visible() const { return visible_; }                  // int, per splat
  const GpuBuffer& screenMeanGradient() const { return dMean_; }         // 2 per splat, per pixel
  const GpuBuffer& depths() const { return depth_; }                     // of visible splats
  const GpuBuffer& activatedScales() const { return scale_; }
  const GpuBuffer& activatedOpacities() const { return opacity_; }
  ImageLoss& loss() { return loss_; }

  // Every kernel that a frame may dispatch, to build ahead.
  static std::vector<std::string> kernelNames(const Variants& variants, Mode mode);
  std::vector<std::string> kernelNames() const { return kernelNames(variants_, mode_); }

 private:
  void reserveInstances(uint32_t instances);
  void activate(ComputeStream& stream, const SplatStore& splats);
  void chooseKeyPartner(const SplatStore& splats);
  bool sortsByRuns(uint32_t count) const;
  void reserveSort(uint32_t count);
  struct SortPair {
    const GpuBuffer *keys, *values;
  };
  // With the sorter that suits the device; true when the result lies in the partner.
  bool sort(ComputeStream& stream, const SortPair& in, const SortPair& partner, uint32_t count, uint32_t keyBits);
  // List scratch aliases the gradient buffers: it is dead before gradients are written.
  const GpuBuffer& depthKey() const { return dMean_; }
  const GpuBuffer& depthKeyPartner() const { return dConic_; }
  const GpuBuffer& tileCount() const { return dConic_; }  // after the depth sort
  const GpuBuffer& orderBegun() const { return dOpacity_; }
  const GpuBuffer& orderPartner() const { return dColour_; }
  const GpuBuffer& order() const { return orderInPartner_ ? orderPartner() : orderBegun(); }
  // Instances counted, their total copied for the host; then each tile's list written, front to back, and tileStart_.
  void countInstances(ComputeStream& stream);
  void sortIntoTiles(ComputeStream& stream);
  void requireTraining() const;

  VulkanContext& context_;
  Mode mode_;
  Variants variants_;
  RadixSorter sorter_;
  RunSorter runSorter_;
  Scanner scanner_;
  ImageLoss loss_;

  uint32_t splatRoom_ = 0;
  uint64_t pixelRoom_ = 0;
  uint32_t tileRoom_ = 0;
  uint32_t instanceRoom_ = 0;

  float splatScale_ = 1;

  // Of the frame in progress.
  int width_ = 0, height_ = 0;
  uint32_t tilesX_ = 0, tilesY_ = 0, instances_ = 0;
  kernels::PreprocessForward::Push camera_ = {};
  kernels::BinCount::Push bin_ = {};
  bool orderInPartner_ = false;
  std::array<float, 3> background_ = {};

  GpuBuffer scale_, opacity_;
  GpuBuffer mean_, conic_, colour_, depth_, halfExtent_, visible_;
  GpuBuffer total_;
  GpuBuffer tileKey_, tileKeyPartner_, splatId_, splatIdPartner_;
  const GpuBuffer* keyPartner_ = nullptr;  // of this frame: tileKeyPartner_ or a gradient buffer of the store
  GpuBuffer tileStart_;
  GpuBuffer image_, alpha_, transmittance_, lastContributor_;
  GpuBuffer dMean_, dConic_, dOpacity_, dColour_;
};

}  // namespace quor::gs
