#version 450
// rasterize_backward with two pixels an invocation; see rasterize_forward_pairs. The sums over a pair need three numbers
// where a pixel needs six, for dx is the same for both:
//
//   s0 = sum dq, s1 = sum dq dy, s2 = sum dq dy^2 give the conic's, the mean's and (by alpha = o G) the opacity's gradient
// The nine sums over the subgroup are taken together by a butterfly that leaves each in an invocation of its own, so that
// nine neighbours add them at once. With subgroups of eight the ninth is left in all.
//
// NATIVE_ATOMIC, bindings and push constants: as rasterize_backward. The batches in shared memory are fenced by barriers
// on both sides.
#extension GL_GOOGLE_include_directive : require
#extension GL_KHR_shader_subgroup_basic : require
#extension GL_KHR_shader_subgroup_vote : require
#extension GL_KHR_shader_subgroup_arithmetic : require
#extension GL_KHR_shader_subgroup_ballot : require
#extension GL_KHR_shader_subgroup_shuffle : require
#include "gs/render/kernels/interfaces.h"
#include "gs/render/kernels/include/atomic_add.glsl"
#include "gs/render/kernels/include/shared_constants.h"

layout(local_size_x = 128) in;
DECLARE_BUFFERS(RASTERIZE_BACKWARD)
DECLARE_PUSH(RASTERIZE_BACKWARD)
#include "gs/render/kernels/include/pixel_pairs.glsl"

DEFINE_ATOMIC_ADD(addMean, dMean)
DEFINE_ATOMIC_ADD(addConic, dConic)
DEFINE_ATOMIC_ADD(addOpacity, dOpacity)
DEFINE_ATOMIC_ADD(addColour, dColour)

shared uint sId[kGroup];
shared int sLongest;

struct Pair {
  vec2 T;
  vec2 S;  // dA T_final - sum over the splats behind of (c . g) alpha T
  vec2 red, green, blue;  // the pixel's gradient
  ivec2 last;
};

struct Sums {
  float s0, s1, s2;
  vec3 colour;
};

Pair load(uvec2 upper) {
  Pair p = Pair(vec2(1.0), vec2(0.0), vec2(0.0), vec2(0.0), vec2(0.0), ivec2(0));
  for (uint k = 0u; k < 2u; ++k) {
    if (upper.x >= width || upper.y + k >= height) continue;
    const uint i = (upper.y + k) * width + upper.x;
    p.T[k] = transmittance[i];
    p.S[k] = dAlpha[i] * p.T[k];
    p.last[k] = lastContributor[i];
    p.red[k] = dImage[3u * i];
    p.green[k] = dImage[3u * i + 1u];
    p.blue[k] = dImage[3u * i + 2u];
  }
  return p;
}

// One level of the butterfly: of two values a pair of invocations each keeps one, summed over the pair.
float fold(float x, float y, uint bit) {
  const bool upper = (gl_SubgroupInvocationID & bit) != 0u;
  return (upper ? y : x) + subgroupShuffleXor(upper ? x : y, bit);
}

void accumulate(uint i, Sums s, float dx, vec4 shape, vec4 look, uint lanes) {
  const float dqdx = s.s0 * dx;
  // The form holds the conic times kHalfLog2e, its mixed term twice.
  const vec2 place = -2.0 / kHalfLog2e * vec2(shape.z * dqdx + 0.5 * shape.w * s.s1, 0.5 * shape.w * dqdx + look.x * s.s1);
  const float c01 = fold(dqdx * dx, 2.0 * s.s1 * dx, 1u), c2m0 = fold(s.s2, place.x, 1u);
  const float m1r = fold(place.y, s.colour.r, 1u), gb = fold(s.colour.g, s.colour.b, 1u);
  float sum = fold(fold(c01, c2m0, 2u), fold(m1r, gb, 2u), 4u);
  float dq = s.s0;
  dq += subgroupShuffleXor(dq, 1u);
  dq += subgroupShuffleXor(dq, 2u);
  dq += subgroupShuffleXor(dq, 4u);
  uint opacityLane = 0u;
  if (lanes > 8u) {
    sum = fold(sum, dq, 8u);
    for (uint bit = 16u; bit < lanes; bit <<= 1u) sum += subgroupShuffleXor(sum, bit);
    dq = sum;
    opacityLane = 8u;
  }
  const uint lane = gl_SubgroupInvocationID;
  if (lane < 3u) addConic(3u * i + lane, sum);
  if (lane == 3u || lane == 4u) addMean(2u * i + lane - 3u, sum);
  if (lane > 4u && lane < 8u) addColour(3u * i + lane - 5u, sum);
  if (lane == opacityLane) addOpacity(i, -2.0 * dq / look.y);
}

// The splat in this slot, which is the `place`-th of the list, on the subgroup's pixels.
void contribute(inout Pair p, uint slot, vec2 centre, int place, uint lanes) {
  const vec4 shape = sShape[slot], look = sLook[slot];
  const float dx = centre.x - shape.x;
  const vec2 dy = vec2(centre.y, centre.y + 1.0) - shape.y;
  const vec2 form = formOnPair(shape, look, dx, dy);
  const vec2 raw = look.y * exp2(-form);
  const vec2 capped = min(vec2(ALPHA_MAX), raw);
  vec2 alpha = where(greaterThanEqual(p.last, ivec2(place)), capped);
  alpha = where(greaterThanEqual(capped, vec2(ALPHA_MIN)), alpha);
  alpha = where(greaterThanEqual(form, vec2(0.0)), alpha);
  if (!subgroupAny(max(alpha.x, alpha.y) > 0.0)) return;
  const vec2 inverse = 1.0 / (1.0 - alpha);
  p.T *= inverse;
  const vec2 weight = alpha * p.T;
  const vec2 cg = look.z * p.red + look.w * p.green + sBlue[slot] * p.blue;
  const vec2 dAlpha = p.T * cg + p.S * inverse;
  p.S -= cg * weight;
  const vec2 dq = where(lessThan(raw, vec2(ALPHA_MAX)), -0.5 * alpha * dAlpha);
  const Sums s = Sums(dq.x + dq.y, dot(dq, dy), dot(dq, dy * dy),
                      vec3(dot(weight, p.red), dot(weight, p.green), dot(weight, p.blue)));
  accumulate(sId[slot], s, dx, shape, look, lanes);
}

// From the last to the first those of the `n` splats in shared memory that reach the block; `walkedBefore` come before
// them in the list.
void contributeBatch(inout Pair p, uint n, Block block, vec2 centre, int walkedBefore, int longest) {
  const uint lanes = lanesRunning();
  for (int chunk = int((n - 1u) / lanes * lanes); chunk >= 0; chunk -= int(lanes)) {
    if (walkedBefore + chunk >= longest) continue;
    const uint mine = uint(chunk) + gl_SubgroupInvocationID;
    const uvec4 reaching = subgroupBallot(mine < n && walkedBefore + int(mine) < longest && reaches(mine, block));
    for (int word = int((lanes - 1u) / 32u); word >= 0; --word) {
      uint bits = reaching[word];
      while (bits != 0u) {
        const uint top = uint(findMSB(bits)), slot = uint(chunk) + 32u * uint(word) + top;
        bits ^= 1u << top;
        contribute(p, slot, centre, walkedBefore + int(slot) + 1, lanes);
      }
    }
  }
}

void main() {
  const uint tile = gl_WorkGroupID.y * tilesX + gl_WorkGroupID.x;
  const uint first = start[tile];
  const uvec2 upper = upperPixel();
  const vec2 centre = vec2(upper) + 0.5;
  const Block block = ownBlock(upper);
  Pair p = load(upper);

  const int longest = subgroupMax(max(p.last.x, p.last.y));
  if (gl_LocalInvocationIndex == 0u) sLongest = 0;
  barrier();
  if (subgroupElect()) atomicMax(sLongest, longest);
  barrier();
  for (int batchEnd = sLongest; batchEnd > 0; batchEnd -= int(kGroup)) {
    const int batch = max(batchEnd - int(kGroup), 0);
    const int slot = int(gl_LocalInvocationIndex);
    barrier();
    if (batch + slot < batchEnd) {
      const uint id = splatId[first + uint(batch + slot)];
      sId[slot] = id;
      loadSplat(uint(slot), id);
    }
    barrier();
    contributeBatch(p, uint(batchEnd - batch), block, centre, batch, longest);
  }
}
