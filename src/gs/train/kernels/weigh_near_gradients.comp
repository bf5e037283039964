#version 450
// Scales down the screen gradients of splats near the camera before the densification statistics take them. Such splats
// move far on the screen whatever they depict, and would grow into floaters that only one camera sees (Zhang et al. 2024,
// "Pixel-GS", scaled gradient field).
//
//   dMean *= min(1, (depth / full)^2)
//
// binding | name  | element | shape | access
//       0 | dMean | float   | N x 2 | read and write, per pixel
//       1 | depth | float   | N     | read
// Push: count, the depth from which on gradients count in full. One invocation a splat, no races.
#extension GL_GOOGLE_include_directive : require
#include "gs/train/kernels/interfaces.h"
#include "gpu/kernels/include/item_index.glsl"

layout(local_size_x = 256) in;
DECLARE_BUFFERS(WEIGH_NEAR_GRADIENTS)
DECLARE_PUSH(WEIGH_NEAR_GRADIENTS)

void main() {
  const uint i = itemIndex();
  if (i >= count) return;
  const float ratio = depth[i] / fullDepth;
  const float weight = min(ratio * ratio, 1.0);
  dMean[2u * i] *= weight;
  dMean[2u * i + 1u] *= weight;
}
