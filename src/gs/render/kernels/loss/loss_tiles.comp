#version 450
// The second half of the loss in two dispatches: blurs the planes of ssim_tiles back and adds L1.
//
//   dImage = l1Scale sign(a - b) + ssimScale (G0 + a G1 + b G2), dAlpha = -(dImage . background) where 1 - alpha >= 0
// with G the blurred planes.
//
// binding | name     | element | shape           | access
//       0 | rendered | float   | H x W x 3       | read
//       1 | photo    | 4 bytes | ceil(3 W H / 4) | read, byte 0 in the lowest bits
//       2 | planes   | float   | 9 x H x W       | read
//       3 | alpha    | float   | H x W           | read
//       4 | dImage   | float   | H x W x 3       | write
//       5 | dAlpha   | float   | H x W           | write
// Push: width, height, l1Scale, ssimScale, background red, green, blue, whether it was composited. Groups cover
// (ceil(W / 16), ceil(H / 16)). Shared memory is fenced by barriers between its uses.
#extension GL_GOOGLE_include_directive : require
#extension GL_EXT_control_flow_attributes : require
#include "gs/render/kernels/interfaces.h"
#include "gs/render/kernels/loss/loss_tiles.glsl"

DECLARE_BUFFERS(LOSS_TILES)
DECLARE_PUSH(LOSS_TILES)

shared float sPlanes[3][kReach * kReach];
shared float sBlurred[3][kReach * kSide];  // along the rows

vec3 planesAt(int place) { return vec3(sPlanes[0][place], sPlanes[1][place], sPlanes[2][place]); }
vec3 blurredAt(int place) { return vec3(sBlurred[0][place], sBlurred[1][place], sBlurred[2][place]); }

void main() {
  const ivec2 size = ivec2(width, height);
  const int pixels = width * height;
  const ivec2 own = columnRun();
  const float background[3] = float[](red, green, blue);
  float throughBackground[kColumnRun] = float[](0.0, 0.0);
  for (int c = 0; c < 3; ++c) {
    for (uint place = gl_LocalInvocationIndex; place < uint(kReach * kReach); place += kInvocations) {
      int pixel;
      const bool inside = pixelAt(place, size, pixel);
      const int p = c * pixels + pixel;
      for (int k = 0; k < 3; ++k) sPlanes[k][place] = inside ? planes[3 * k * pixels + p] : 0.0;
    }
    barrier();

    int row, column;
    if (rowRun(gl_LocalInvocationIndex, row, column)) {
      vec3 sums[kRowRun] = vec3[](vec3(0.0), vec3(0.0), vec3(0.0), vec3(0.0));
      [[unroll]] for (int k = 0; k < kRowRun + 2 * kRadius; ++k) {
        const vec3 s = planesAt(row * kReach + column + k);
        [[unroll]] for (int j = max(0, k - 2 * kRadius); j <= min(kRowRun - 1, k); ++j) sums[j] += kWindow[k - j] * s;
      }
      [[unroll]] for (int j = 0; j < kRowRun; ++j) {
        for (int k = 0; k < 3; ++k) sBlurred[k][row * kSide + column + j] = sums[j][k];
      }
    }
    barrier();

    vec3 sums[kColumnRun] = vec3[](vec3(0.0), vec3(0.0));
    [[unroll]] for (int k = 0; k < kColumnRun + 2 * kRadius; ++k) {
      const vec3 s = blurredAt((own.y + k) * kSide + own.x);
      [[unroll]] for (int j = max(0, k - 2 * kRadius); j <= min(kColumnRun - 1, k); ++j) sums[j] += kWindow[k - j] * s;
    }
    [[unroll]] for (int j = 0; j < kColumnRun; ++j) {
      const ivec2 at = ivec2(gl_WorkGroupID.xy) * kSide + own + ivec2(0, j);
      if (any(greaterThanEqual(at, size))) continue;
      const int i = 3 * (at.y * width + at.x) + c;
      const float a = rendered[i], b = float((photo[i >> 2] >> (8 * (i & 3))) & 255u) * 0.003921568859368563;
      const float g = l1Scale * sign(a - b) + ssimScale * (sums[j].x + a * sums[j].y + b * sums[j].z);
      dImage[i] = g;
      throughBackground[j] -= g * background[c];
    }
  }
  [[unroll]] for (int j = 0; j < kColumnRun; ++j) {
    const ivec2 at = ivec2(gl_WorkGroupID.xy) * kSide + own + ivec2(0, j);
    if (any(greaterThanEqual(at, size))) continue;
    const int p = at.y * width + at.x;
    dAlpha[p] = composited != 0u && 1.0 - alpha[p] >= 0.0 ? throughBackground[j] : 0.0;
  }
}
