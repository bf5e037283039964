#version 450
// The gradient of the SSIM term with respect to the rendered image, from the gradients of the statistics blurred back:
// dL/da = G[mean a] + 2 a G[a a] + b G[a b].
//
// binding | name      | element | shape      | access
//       0 | gradients | float   | 15 x H x W | read
//       1 | rendered  | float   | H x W x 3  | read
//       2 | target    | float   | H x W x 3  | read
//       3 | dImage    | float   | H x W x 3  | write
// Push: width, height. Groups cover (W, H, 3); no races.
#extension GL_GOOGLE_include_directive : require
#include "gs/render/kernels/interfaces.h"

layout(local_size_x = 16, local_size_y = 16) in;
DECLARE_BUFFERS(SSIM_CHAIN_BACKWARD)
DECLARE_PUSH(SSIM_CHAIN_BACKWARD)

void main() {
  const uvec3 at = gl_GlobalInvocationID;
  if (at.x >= width || at.y >= height || at.z >= 3u) return;
  const uint pixels = width * height;
  const uint p = at.y * width + at.x;
  const uint i = 3u * p + at.z;
  const uint g = at.z * pixels + p;
  dImage[i] = gradients[g] + 2.0 * rendered[i] * gradients[6u * pixels + g] + target[i] * gradients[12u * pixels + g];
}
