// Scores the scene against the photographs that were held out of training.
#pragma once

#include <atomic>
#include <functional>
#include <string>
#include <vector>

#include "gpu/compute/compute_stream.h"
#include "gpu/memory/transfer.h"
#include "gs/data/dataset.h"
#include "gs/render/renderer.h"
#include "gs/train/train_job.h"

namespace quor::gs {

struct RenderSettings {
  int shDegree = 3;
  float nearPlane = 0.01f;
  std::array<float, 3> background = {0, 0, 0};
};

// Called for each view in turn with its photograph, its figures and the rendered image.
using OnViewScored = std::function<void(const std::string& view, const Image& photograph, const ImageScores& scores,
                                        const Image& render)>;

// Means over the views of each view's figures (PSNR is averaged in dB); without views the result is empty. The renderer
// is one for training with room for the splats; room for the views is added. Throws Cancelled once `cancel` is true.
EvalResult evaluate(ComputeStream& stream, Transfer& transfer, Renderer& renderer, const SplatStore& splats,
                    const std::vector<View>& views, const RenderSettings& settings, const std::atomic<bool>& cancel,
                    const OnViewScored& each = {});

// "Held-out views (N): PSNR ... dB, SSIM ..., L1 ..."
std::string describe(const EvalResult& result);

}  // namespace quor::gs
