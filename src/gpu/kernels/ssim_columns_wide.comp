#version 450
// The vertical blur of the statistics, ssim_tail_forward and what is needed of ssim_tail_backward in one: the SSIM of every
// pixel and channel, and the gradient of scale x SSIM with respect to the three statistics that the rendered image enters
// (its mean, its square, its product with the target). Eight pixels of a column an invocation.
//
// binding | name      | element | shape      | access
//       0 | planes    | float   | 15 x H x W | read, blurred along the rows
//       1 | gradients | float   | 9 x H x W  | write, plane 3 k + c for d mean, d square, d product
//       2 | map       | float   | H x W x 3  | write
// Push: width, height, scale. Groups cover (W, ceil(H / 8), 3); no races.
#extension GL_GOOGLE_include_directive : require
#include "shared_constants.h"
#include "ssim_runs.glsl"

layout(local_size_x = 8, local_size_y = 8) in;
layout(binding = 0) readonly buffer Planes { float planes[]; };
layout(binding = 1) writeonly buffer Gradients { float gradients[]; };
layout(binding = 2) writeonly buffer Map { float map[]; };
layout(push_constant) uniform Push {
  int width;
  int height;
  float scale;
};

void main() {
  const int x = int(gl_GlobalInvocationID.x), y0 = int(gl_GlobalInvocationID.y) * kRun, c = int(gl_GlobalInvocationID.z);
  if (x >= width || y0 >= height) return;
  const int pixels = width * height;
  float ma[8] = kZeroRun, mb[8] = kZeroRun, aa[8] = kZeroRun, bb[8] = kZeroRun, ab[8] = kZeroRun;
  [[unroll]] for (int t = 0; t < kReach; ++t) {
    const int y = y0 + t - kRadius;
    const float inside = y >= 0 && y < height ? 1.0 : 0.0;
    const int i = c * pixels + clamp(y, 0, height - 1) * width + x;
    SPREAD(ma, t, inside * planes[i])
    SPREAD(mb, t, inside * planes[i + 3 * pixels])
    SPREAD(aa, t, inside * planes[i + 6 * pixels])
    SPREAD(bb, t, inside * planes[i + 9 * pixels])
    SPREAD(ab, t, inside * planes[i + 12 * pixels])
  }
  [[unroll]] for (int j = 0; j < kRun; ++j) {
    if (y0 + j < height) {
      const float mx = ma[j], my = mb[j];
      const float A = 2.0 * mx * my + SSIM_C1, B = 2.0 * (ab[j] - mx * my) + SSIM_C2;
      const float C = mx * mx + my * my + SSIM_C1, D = aa[j] - mx * mx + bb[j] - my * my + SSIM_C2;
      const float inverseC = 1.0 / C, inverseD = 1.0 / D;
      const float ssim = A * B / (C * D);  // exactly 1 where the images are equal
      const int p = (y0 + j) * width + x;
      map[3 * p + c] = ssim;
      const int at = c * pixels + p;
      gradients[at] = scale * 2.0 * (my * (B - A) * inverseC * inverseD + mx * ssim * (inverseD - inverseC));
      gradients[at + 3 * pixels] = -scale * ssim * inverseD;
      gradients[at + 6 * pixels] = scale * 2.0 * A * inverseC * inverseD;
    }
  }
}
