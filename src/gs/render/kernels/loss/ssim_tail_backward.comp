#version 450
// The gradient of scale x SSIM with respect to each of the five blurred statistics of every pixel and channel:
//
//   d/dE[a a] = d/dE[b b] = -SSIM / D, d/dE[a b] = 2 A / (C D)
//   d/dmx = 2 my (B - A) / (C D) + 2 mx SSIM (1 / D - 1 / C), d/dmy likewise with mx and my exchanged
//
// binding | name      | element | shape      | access
//       0 | planes    | float   | 15 x H x W | read
//       1 | gradients | float   | 15 x H x W | write
// Push: pixels (P), scale. One invocation a pixel and channel (item c P + p), no races.
#extension GL_GOOGLE_include_directive : require
#include "gs/render/kernels/interfaces.h"
#include "gs/render/kernels/include/shared_constants.h"
#include "gpu/kernels/include/item_index.glsl"

layout(local_size_x = 256) in;
DECLARE_BUFFERS(SSIM_TAIL_BACKWARD)
DECLARE_PUSH(SSIM_TAIL_BACKWARD)
#include "gs/render/kernels/loss/ssim_terms.glsl"

void main() {
  const uint i = itemIndex();
  if (i >= 3u * pixels) return;
  const SsimTerms t = ssimTerms(i, pixels);
  const float cd = t.C * t.D;
  const float ssim = t.A * t.B / cd;
  const float cross_ = 2.0 * (t.B - t.A) / cd;
  const float own = 2.0 * ssim * (1.0 / t.D - 1.0 / t.C);
  const uint stride = 3u * pixels;
  gradients[i] = scale * (t.my * cross_ + t.mx * own);
  gradients[stride + i] = scale * (t.mx * cross_ + t.my * own);
  gradients[2u * stride + i] = scale * (-ssim / t.D);
  gradients[3u * stride + i] = scale * (-ssim / t.D);
  gradients[4u * stride + i] = scale * (2.0 * t.A / cd);
}
