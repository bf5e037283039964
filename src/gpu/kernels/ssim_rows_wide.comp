#version 450
// ssim_stack_blur_h with eight pixels of a row an invocation: same bindings, same planes.
//
// Bindings and push constants: as ssim_stack_blur_h. Groups cover (ceil(W / 8), H, 3); no races.
#extension GL_GOOGLE_include_directive : require
#include "ssim_runs.glsl"

layout(local_size_x = 8, local_size_y = 8) in;
layout(binding = 0) readonly buffer Rendered { float rendered[]; };
layout(binding = 1) readonly buffer Target { float target[]; };
layout(binding = 2) writeonly buffer Planes { float planes[]; };
layout(push_constant) uniform Push {
  int width;
  int height;
};

void main() {
  const int x0 = int(gl_GlobalInvocationID.x) * kRun, y = int(gl_GlobalInvocationID.y), c = int(gl_GlobalInvocationID.z);
  if (x0 >= width || y >= height) return;
  float ma[8] = kZeroRun, mb[8] = kZeroRun, aa[8] = kZeroRun, bb[8] = kZeroRun, ab[8] = kZeroRun;
  [[unroll]] for (int t = 0; t < kReach; ++t) {
    const int x = x0 + t - kRadius;
    const bool inside = x >= 0 && x < width;
    const int i = (y * width + clamp(x, 0, width - 1)) * 3 + c;
    const float a = inside ? rendered[i] : 0.0, b = inside ? target[i] : 0.0;
    SPREAD(ma, t, a)
    SPREAD(mb, t, b)
    SPREAD(aa, t, a * a)
    SPREAD(bb, t, b * b)
    SPREAD(ab, t, a * b)
  }
  const int pixels = width * height;
  const int at = c * pixels + y * width + x0;
  [[unroll]] for (int j = 0; j < kRun; ++j) {
    if (x0 + j < width) {
      planes[at + j] = ma[j];
      planes[at + j + 3 * pixels] = mb[j];
      planes[at + j + 6 * pixels] = aa[j];
      planes[at + j + 9 * pixels] = bb[j];
      planes[at + j + 12 * pixels] = ab[j];
    }
  }
}
