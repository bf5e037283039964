#version 450
// The whole gradient of the loss with respect to every rendered pixel: that of L1 and of SSIM, and what the composited
// background passes on to the pixel's accumulated opacity.
//
//   g = l1Scale sign(rendered - target) + dSsim;  dAlpha = -(g . background) where 1 - alpha >= 0
//
// binding | name     | element | shape | access
//       0 | rendered | float   | P x 3 | read
//       1 | target   | float   | P x 3 | read
//       2 | dSsim    | float   | P x 3 | read
//       3 | alpha    | float   | P     | read
//       4 | dImage   | float   | P x 3 | write
//       5 | dAlpha   | float   | P     | write
// Push: pixels (P), l1Scale, background red, green, blue, whether a background was composited. No races.
#extension GL_GOOGLE_include_directive : require
#include "gs/render/kernels/interfaces.h"
#include "gpu/kernels/include/item_index.glsl"

layout(local_size_x = 256) in;
DECLARE_BUFFERS(LOSS_GRAD)
DECLARE_PUSH(LOSS_GRAD)

void main() {
  const uint p = itemIndex();
  if (p >= pixels) return;
  vec3 g;
  for (uint c = 0u; c < 3u; ++c) {
    const uint i = 3u * p + c;
    g[c] = l1Scale * sign(rendered[i] - target[i]) + dSsim[i];
    dImage[i] = g[c];
  }
  const bool passes = composited != 0u && 1.0 - alpha[p] >= 0.0;
  dAlpha[p] = passes ? -dot(g, vec3(red, green, blue)) : 0.0;
}
