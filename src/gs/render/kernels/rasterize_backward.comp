#version 450
// The exact derivative of rasterize_forward: every pixel walks its list from its last contributor to its first and adds
// nine values a contribution to the splats' accumulators.
//
//   T_i = T_(i+1) / (1 - alpha_i), from the stored final T
//   dL/dalpha_i = T_i (c_i . g) - S / (1 - alpha_i) + dA T_final / (1 - alpha_i)
//   with g the pixel's gradient, dA that of its accumulated opacity, S = sum over the splats behind of (c . g) alpha T
// No gradient flows to opacity and shape where alpha is capped.
//
// SG=1 sums each value over the subgroup before one invocation adds it; SG=0 lets every invocation add. NATIVE_ATOMIC=1
// adds with the float atomic; NATIVE_ATOMIC=0 binds the accumulators as words and adds by compare-and-swap.
//
// binding | name            | element       | shape     | access
//       0 | start           | uint          | tiles + 1 | read
//       1 | splatId         | uint          | M         | read
//       2 | mean            | float         | N x 2     | read
//       3 | conic           | float         | N x 3     | read
//       4 | opacity         | float         | N         | read
//       5 | colour          | float         | N x 3     | read
//       6 | transmittance   | float         | H x W     | read, final
//       7 | lastContributor | int           | H x W     | read
//       8 | dImage          | float         | H x W x 3 | read
//       9 | dAlpha          | float         | H x W     | read
//      10 | dMean           | float or bits | N x 2     | atomic add
//      11 | dConic          | float or bits | N x 3     | atomic add
//      12 | dOpacity        | float or bits | N         | atomic add
//      13 | dColour         | float or bits | N x 3     | atomic add
// Push: width, height, tiles in x, unused. The batches in shared memory are fenced by barriers on both sides.
#extension GL_GOOGLE_include_directive : require
#include "gs/render/kernels/interfaces.h"
#include "gs/render/kernels/include/atomic_add.glsl"
#include "gs/render/kernels/include/shared_constants.h"
#if SG
#extension GL_KHR_shader_subgroup_basic : require
#extension GL_KHR_shader_subgroup_vote : require
#extension GL_KHR_shader_subgroup_arithmetic : require
#endif

layout(local_size_x = 16, local_size_y = 16) in;
DECLARE_BUFFERS(RASTERIZE_BACKWARD)
DECLARE_PUSH(RASTERIZE_BACKWARD)

DEFINE_ATOMIC_ADD(addMean, dMean)
DEFINE_ATOMIC_ADD(addConic, dConic)
DEFINE_ATOMIC_ADD(addOpacity, dOpacity)
DEFINE_ATOMIC_ADD(addColour, dColour)

const uint kBatch = 256u;
shared uint sId[kBatch];
shared vec2 sMean[kBatch];
shared vec4 sConicOpacity[kBatch];
shared vec3 sColour[kBatch];
shared int sLongest;

void loadSplat(uint slot, uint i) {
  sId[slot] = i;
  sMean[slot] = vec2(mean[2u * i], mean[2u * i + 1u]);
  sConicOpacity[slot] = vec4(conic[3u * i], conic[3u * i + 1u], conic[3u * i + 2u], opacity[i]);
  sColour[slot] = vec3(colour[3u * i], colour[3u * i + 1u], colour[3u * i + 2u]);
}

struct Contribution {
  vec2 mean;
  vec3 conic;
  float opacity;
  vec3 colour;
};

void accumulate(uint i, Contribution d, bool contributes) {
#if SG
  if (!subgroupAny(contributes)) return;
  d.mean = subgroupAdd(d.mean);
  d.conic = subgroupAdd(d.conic);
  d.opacity = subgroupAdd(d.opacity);
  d.colour = subgroupAdd(d.colour);
  if (!subgroupElect()) return;
#else
  if (!contributes) return;
#endif
  for (uint k = 0u; k < 2u; ++k) addMean(2u * i + k, d.mean[k]);
  for (uint k = 0u; k < 3u; ++k) addConic(3u * i + k, d.conic[k]);
  addOpacity(i, d.opacity);
  for (uint k = 0u; k < 3u; ++k) addColour(3u * i + k, d.colour[k]);
}

void main() {
  const uint tile = gl_WorkGroupID.y * tilesX + gl_WorkGroupID.x;
  const uint first = start[tile];
  const uvec2 pixel = gl_GlobalInvocationID.xy;
  const vec2 centre = vec2(pixel) + 0.5;
  const uint p = pixel.y * width + pixel.x;

  int last = 0;
  float T = 1.0, finalT = 1.0, dA = 0.0, S = 0.0;
  vec3 g = vec3(0.0);
  if (pixel.x < width && pixel.y < height) {
    last = lastContributor[p];
    T = transmittance[p];
    finalT = T;
    g = vec3(dImage[3u * p], dImage[3u * p + 1u], dImage[3u * p + 2u]);
    dA = dAlpha[p];
  }
  if (gl_LocalInvocationIndex == 0u) sLongest = 0;
  barrier();
  atomicMax(sLongest, last);
  barrier();

  for (int batchEnd = sLongest; batchEnd > 0; batchEnd -= int(kBatch)) {
    const int batch = max(batchEnd - int(kBatch), 0);
    const int slot = int(gl_LocalInvocationIndex);
    barrier();
    if (batch + slot < batchEnd) loadSplat(uint(slot), splatId[first + uint(batch + slot)]);
    barrier();
    for (int j = batchEnd - batch - 1; j >= 0; --j) {
      const vec2 d = centre - sMean[j];
      const vec4 co = sConicOpacity[j];
      const float power = -0.5 * (co.x * d.x * d.x + 2.0 * co.y * d.x * d.y + co.z * d.y * d.y);
      const float G = exp(min(power, 0.0));
      const float alpha = min(ALPHA_MAX, co.w * G);
      const bool contributes = batch + j < last && power <= 0.0 && alpha >= ALPHA_MIN;
      Contribution out_ = Contribution(vec2(0.0), vec3(0.0), 0.0, vec3(0.0));
      if (contributes) {
        const float inverse = 1.0 / (1.0 - alpha);
        T *= inverse;
        const float cg = dot(sColour[j], g);
        const float dAlpha = T * cg + (dA * finalT - S) * inverse;
        S += cg * alpha * T;
        out_.colour = g * (alpha * T);
        if (co.w * G < ALPHA_MAX) {
          const float dq = -0.5 * alpha * dAlpha;
          out_.opacity = G * dAlpha;
          out_.conic = dq * vec3(d.x * d.x, 2.0 * d.x * d.y, d.y * d.y);
          out_.mean = -2.0 * dq * vec2(co.x * d.x + co.y * d.y, co.y * d.x + co.z * d.y);
        }
      }
      accumulate(sId[j], out_, contributes);
    }
  }
}
