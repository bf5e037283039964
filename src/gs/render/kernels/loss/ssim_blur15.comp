#version 450
// Blurs planes with the SSIM window along one axis. The zero-padded symmetric window is its own adjoint, so this same
// kernel carries gradients back.
//
// binding | name | element | shape          | access
//       0 | from | float   | planes x H x W | read
//       1 | to   | float   | planes x H x W | write
// Push: width, height, axis (0 horizontal, otherwise vertical), planes. Groups cover (W, H, planes); no races.
#extension GL_GOOGLE_include_directive : require
#include "gs/render/kernels/interfaces.h"
#include "gs/render/kernels/loss/ssim_window.glsl"

layout(local_size_x = 16, local_size_y = 16) in;
DECLARE_BUFFERS(SSIM_BLUR15)
DECLARE_PUSH(SSIM_BLUR15)

void main() {
  const ivec3 at = ivec3(gl_GlobalInvocationID);
  if (at.x >= width || at.y >= height || at.z >= planes) return;
  const int i = at.z * width * height + at.y * width + at.x;
  const int place = axis == 0 ? at.x : at.y;
  const int size = axis == 0 ? width : height;
  const int stride = axis == 0 ? 1 : width;
  float sum = 0.0;
  for (int d = -kRadius; d <= kRadius; ++d) {
    if (place + d >= 0 && place + d < size) sum += kWindow[d + kRadius] * from[i + d * stride];
  }
  to[i] = sum;
}
