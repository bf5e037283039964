#version 450
// The vertical blur of the gradients and ssim_chain_backward in one: the gradient of the SSIM term with respect to the
// rendered image, dL/da = G[mean a] + 2 a G[a a] + b G[a b]. Eight pixels of a column an invocation.
//
// binding | name      | element | shape     | access
//       0 | gradients | float   | 9 x H x W | read, blurred along the rows
//       1 | rendered  | float   | H x W x 3 | read
//       2 | target    | float   | H x W x 3 | read
//       3 | dImage    | float   | H x W x 3 | write
// Push: width, height. Groups cover (W, ceil(H / 8), 3); no races.
#extension GL_GOOGLE_include_directive : require
#include "ssim_runs.glsl"

layout(local_size_x = 8, local_size_y = 8) in;
layout(binding = 0) readonly buffer Gradients { float gradients[]; };
layout(binding = 1) readonly buffer Rendered { float rendered[]; };
layout(binding = 2) readonly buffer Target { float target[]; };
layout(binding = 3) writeonly buffer DImage { float dImage[]; };
layout(push_constant) uniform Push {
  int width;
  int height;
};

void main() {
  const int x = int(gl_GlobalInvocationID.x), y0 = int(gl_GlobalInvocationID.y) * kRun, c = int(gl_GlobalInvocationID.z);
  if (x >= width || y0 >= height) return;
  const int pixels = width * height;
  float mean[8] = kZeroRun, square[8] = kZeroRun, product[8] = kZeroRun;
  [[unroll]] for (int t = 0; t < kReach; ++t) {
    const int y = y0 + t - kRadius;
    const float inside = y >= 0 && y < height ? 1.0 : 0.0;
    const int i = c * pixels + clamp(y, 0, height - 1) * width + x;
    SPREAD(mean, t, inside * gradients[i])
    SPREAD(square, t, inside * gradients[i + 3 * pixels])
    SPREAD(product, t, inside * gradients[i + 6 * pixels])
  }
  [[unroll]] for (int j = 0; j < kRun; ++j) {
    if (y0 + j < height) {
      const int i = 3 * ((y0 + j) * width + x) + c;
      dImage[i] = mean[j] + 2.0 * rendered[i] * square[j] + target[i] * product[j];
    }
  }
}
