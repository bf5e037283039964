#version 450
// Blurs the gradients of ssim_columns_wide along the rows, eight pixels an invocation.
//
// binding | name | element | shape          | access
//       0 | from | float   | planes x H x W | read
//       1 | to   | float   | planes x H x W | write
// Push: width, height. Groups cover (ceil(W / 8), H, planes); no races.
#extension GL_GOOGLE_include_directive : require
#include "ssim_runs.glsl"

layout(local_size_x = 8, local_size_y = 8) in;
layout(binding = 0) readonly buffer From { float from[]; };
layout(binding = 1) writeonly buffer To { float to[]; };
layout(push_constant) uniform Push {
  int width;
  int height;
};

void main() {
  const int x0 = int(gl_GlobalInvocationID.x) * kRun, y = int(gl_GlobalInvocationID.y);
  if (x0 >= width || y >= height) return;
  const int row = (int(gl_GlobalInvocationID.z) * height + y) * width;
  float sums[8] = kZeroRun;
  [[unroll]] for (int t = 0; t < kReach; ++t) {
    const int x = x0 + t - kRadius;
    const float inside = x >= 0 && x < width ? 1.0 : 0.0;
    SPREAD(sums, t, inside * from[row + clamp(x, 0, width - 1)])
  }
  [[unroll]] for (int j = 0; j < kRun; ++j) {
    if (x0 + j < width) to[row + x0 + j] = sums[j];
  }
}
