#version 450
// First half of the windowed statistics of SSIM: the horizontal blur of a, b, a a, b b and a b, with a the rendered and b
// the target image, into 15 planes (plane 3 k + c for statistic k and channel c).
//
// binding | name     | element | shape      | access
//       0 | rendered | float   | H x W x 3  | read
//       1 | target   | float   | H x W x 3  | read
//       2 | planes   | float   | 15 x H x W | write
// Push: width, height. Groups cover (W, H, 3); one invocation a pixel and channel, no races.
#extension GL_GOOGLE_include_directive : require
#include "gs/render/kernels/interfaces.h"
#include "gs/render/kernels/loss/ssim_window.glsl"

layout(local_size_x = 16, local_size_y = 16) in;
DECLARE_BUFFERS(SSIM_STACK_BLUR_H)
DECLARE_PUSH(SSIM_STACK_BLUR_H)

void main() {
  const ivec3 at = ivec3(gl_GlobalInvocationID);
  if (at.x >= width || at.y >= height || at.z >= 3) return;
  float sums[5] = float[](0.0, 0.0, 0.0, 0.0, 0.0);
  for (int d = -kRadius; d <= kRadius; ++d) {
    const int x = at.x + d;
    if (x < 0 || x >= width) continue;
    const int i = (at.y * width + x) * 3 + at.z;
    const float w = kWindow[d + kRadius], a = rendered[i], b = target[i];
    sums[0] += w * a;
    sums[1] += w * b;
    sums[2] += w * a * a;
    sums[3] += w * b * b;
    sums[4] += w * a * b;
  }
  const int pixels = width * height;
  for (int k = 0; k < 5; ++k) planes[(3 * k + at.z) * pixels + at.y * width + at.x] = sums[k];
}
