// Which blending kernels a device gets. Its features say which it can run; which of these is fastest has to be
// measured: each candidate draws and differentiates a made-up scene. Candidates that add up gradients wrongly or differ
// from the plain kernels are left out, and the fastest of the rest is taken.
//
// The scene grows until a frame takes the device long enough to be timed. Software drivers have one candidate only,
// whose sums are checked on a single frame of 160 x 90.
#pragma once

#include <limits>
#include <string>
#include <vector>

#include "base/log/log_store.h"
#include "gs/render/renderer.h"

namespace quor::gs {

// A pair of forward and backward kernels, and what a trial found of it.
struct BlendFinding {
  Renderer::Variants variants;
  double sumError = 0;       // relative error of the sum of its gradients; NaN when it could not run
  std::string failure = {};  // why not
  bool alike = true;         // picture and gradients are those of the first candidate, up to rounding
  double milliseconds = std::numeric_limits<double>::infinity();  // least of both kernels together
  bool addsUp() const;
};

// The pairs that this device can run, the plain one first: forwards by pairs of pixels need no float atomics, so they
// may go with a plain backward.
std::vector<Renderer::Variants> blendCandidates(const VulkanContext& context, const KernelRegistry& registry);

// Checks the sums of each on a small picture.
std::vector<BlendFinding> checkBlends(VulkanContext& context, KernelRegistry& registry,
                                      const std::vector<Renderer::Variants>& candidates);
// Compares and times them.
void timeBlends(VulkanContext& context, KernelRegistry& registry, std::vector<BlendFinding>& findings);

// The choice, tried once for each registry, which remembers it as the variants of rasterize_forward and
// rasterize_backward; says in the log what it found. Throws std::runtime_error when no kernel adds up rightly.
Renderer::Variants variantsByTrial(VulkanContext& context, KernelRegistry& registry, LogStore& log);

}  // namespace quor::gs
