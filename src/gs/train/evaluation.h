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

// What a scene is rendered with.
struct RenderSettings {
  int shDegree = 3;
  float nearPlane = 0.01f;
  std::array<float, 3> background = {0, 0, 0};
};

// Called for each view in turn with its figures and the scene's picture of it.
using OnViewScored = std::function<void(const LoadedView& view, const ImageScores& scores, const Image& render)>;

// Means over the views of each view's figures (PSNR is averaged in dB); no views give an empty result. The renderer is
// one for training, with room for the splats; it is given room for the views. `cancel` ends it with "Cancelled".
EvalResult evaluate(ComputeStream& stream, Transfer& transfer, Renderer& renderer, const SplatStore& splats,
                    const std::vector<View>& views, const RenderSettings& settings, const std::atomic<bool>& cancel,
                    const OnViewScored& each = {});

// "Held-out views (N): PSNR ... dB, SSIM ..., L1 ..."
std::string describe(const EvalResult& result);

}  // namespace quor::gs
