// Which blending kernels a device runs fastest. No list of GPUs could say it, so the device is asked: a small made-up
// scene is drawn and differentiated by the plain kernels and by the paired ones, and the paired ones are taken where
// they give the same and take less time. It costs a few frames of 640 x 360.
#pragma once

#include "base/log/log_store.h"
#include "gs/render/renderer.h"

namespace quor::gs {

struct BlendTrial {
  bool alike = false;                // picture and gradients, up to rounding
  double firstMs = 0, secondMs = 0;  // least of the forward and the backward kernel together
  static BlendTrial of(VulkanContext& context, KernelRegistry& registry, const Renderer::Variants& first,
                       const Renderer::Variants& second);
};

// Renderer::Variants::forDevice(), with the paired blends where a trial speaks for them; says in the log what it found.
Renderer::Variants variantsByTrial(VulkanContext& context, KernelRegistry& registry, LogStore& log);

}  // namespace quor::gs
