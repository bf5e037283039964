#version 450
// SSIM of every pixel and channel, and its gradient with respect to the windowed statistics: the first half of the loss in
// two dispatches, for GPUs. With A, B, C and D as in ssim_tail_backward,
//
//   planes = 2 (my (B - A) / (C D) + mx SSIM (1 / D - 1 / C)), -2 SSIM / D, 2 A / (C D)
// that is by the mean of a, twice that by E[a a] (its chain rule's 2 a included) and by E[a b]. D needs only the sum of the
// squares, so four statistics are blurred.
//
// binding | name     | element | shape           | access
//       0 | rendered | float   | H x W x 3       | read
//       1 | photo    | 4 bytes | ceil(3 W H / 4) | read, byte 0 in the lowest bits
//       2 | planes   | float   | 9 x H x W       | write, plane 3 k + c for gradient k and channel c
//       3 | partials | float   | groups x 3      | write, sums of | a - b |, (clamp(a) - b)^2 and SSIM
// Push: width, height, whether sums are wanted. Groups cover (ceil(W / 16), ceil(H / 16), 3). Shared memory is fenced by
// barriers between its uses.
#extension GL_GOOGLE_include_directive : require
#extension GL_EXT_control_flow_attributes : require
#include "gs/render/kernels/interfaces.h"
#include "gs/render/kernels/include/shared_constants.h"
#include "gs/render/kernels/loss/loss_tiles.glsl"

DECLARE_BUFFERS(SSIM_TILES)
DECLARE_PUSH(SSIM_TILES)

shared vec2 sPair[kReach * kReach];   // a and b
shared vec4 sBlurred[kReach * kSide];  // along the rows: a, b, a a + b b, a b; then the invocations' sums

vec4 statistics(vec2 pair) { return vec4(pair, dot(pair, pair), pair.x * pair.y); }

void main() {
  const ivec2 size = ivec2(width, height);
  const int c = int(gl_WorkGroupID.z);
  for (uint place = gl_LocalInvocationIndex; place < uint(kReach * kReach); place += kInvocations) {
    int pixel;
    vec2 pair = vec2(0.0);
    if (pixelAt(place, size, pixel)) {
      const int i = 3 * pixel + c;
      pair = vec2(rendered[i], float((photo[i >> 2] >> (8 * (i & 3))) & 255u) * 0.003921568859368563);
    }
    sPair[place] = pair;
  }
  barrier();

  int row, column;
  if (rowRun(gl_LocalInvocationIndex, row, column)) {
    vec4 sums[kRowRun] = vec4[](vec4(0.0), vec4(0.0), vec4(0.0), vec4(0.0));
    [[unroll]] for (int k = 0; k < kRowRun + 2 * kRadius; ++k) {
      const vec4 s = statistics(sPair[row * kReach + column + k]);
      [[unroll]] for (int j = max(0, k - 2 * kRadius); j <= min(kRowRun - 1, k); ++j) sums[j] += kWindow[k - j] * s;
    }
    [[unroll]] for (int j = 0; j < kRowRun; ++j) sBlurred[row * kSide + column + j] = sums[j];
  }
  barrier();

  const ivec2 own = columnRun();
  vec4 sums[kColumnRun] = vec4[](vec4(0.0), vec4(0.0));
  [[unroll]] for (int k = 0; k < kColumnRun + 2 * kRadius; ++k) {
    const vec4 s = sBlurred[(own.y + k) * kSide + own.x];
    [[unroll]] for (int j = max(0, k - 2 * kRadius); j <= min(kColumnRun - 1, k); ++j) sums[j] += kWindow[k - j] * s;
  }

  vec3 total = vec3(0.0);
  const int pixels = width * height;
  [[unroll]] for (int j = 0; j < kColumnRun; ++j) {
    const ivec2 at = ivec2(gl_WorkGroupID.xy) * kSide + own + ivec2(0, j);
    if (any(greaterThanEqual(at, size))) continue;
    const float mx = sums[j].x, my = sums[j].y, mm = mx * mx + my * my;
    const float A = 2.0 * mx * my + SSIM_C1, B = 2.0 * (sums[j].w - mx * my) + SSIM_C2;
    const float C = mm + SSIM_C1, D = sums[j].z - mm + SSIM_C2;
    const float inverseC = 1.0 / C, inverseD = 1.0 / D;
    const float ssim = A * B / (C * D);  // exactly 1 where the images are equal
    const int p = c * pixels + at.y * width + at.x;
    planes[p] = 2.0 * (my * (B - A) * inverseC * inverseD + mx * ssim * (inverseD - inverseC));
    planes[3 * pixels + p] = -2.0 * ssim * inverseD;
    planes[6 * pixels + p] = 2.0 * A * inverseC * inverseD;
    const vec2 pair = sPair[(own.y + j + kRadius) * kReach + own.x + kRadius];
    const float squared = clamp(pair.x, 0.0, 1.0) - pair.y;
    total += vec3(abs(pair.x - pair.y), squared * squared, ssim);
  }
  if (withSums == 0u) return;

  barrier();
  sBlurred[gl_LocalInvocationIndex].xyz = total;
  for (uint half_ = kInvocations / 2u; half_ > 0u; half_ /= 2u) {
    barrier();
    if (gl_LocalInvocationIndex < half_) sBlurred[gl_LocalInvocationIndex] += sBlurred[gl_LocalInvocationIndex + half_];
  }
  if (gl_LocalInvocationIndex != 0u) return;
  const uint group = (gl_WorkGroupID.z * gl_NumWorkGroups.y + gl_WorkGroupID.y) * gl_NumWorkGroups.x + gl_WorkGroupID.x;
  for (uint k = 0u; k < 3u; ++k) partials[3u * group + k] = sBlurred[0][k];
}
