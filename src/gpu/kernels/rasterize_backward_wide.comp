#version 450
// rasterize_backward with eight pixels an invocation; see rasterize_forward_wide. The sums over a column need three numbers
// where a pixel needs six, for dx is the same for all of it:
//
//   s0 = sum dq, s1 = sum dq dy, s2 = sum dq dy^2 give the conic's, the mean's and (by alpha = o G) the opacity's gradient
// Eight of the nine sums over the subgroup are taken together by a butterfly that leaves each in an invocation of its own,
// and every invocation adds the one that it holds.
//
// Bindings and push constants: as rasterize_backward with NATIVE_ATOMIC=1. No shared memory, no barriers. Subgroups of
// eight.
#extension GL_GOOGLE_include_directive : require
#extension GL_EXT_shader_atomic_float : require
#extension GL_KHR_shader_subgroup_basic : require
#extension GL_KHR_shader_subgroup_vote : require
#extension GL_KHR_shader_subgroup_arithmetic : require
#extension GL_KHR_shader_subgroup_ballot : require
#extension GL_KHR_shader_subgroup_shuffle : require
#include "shared_constants.h"

layout(local_size_x = 32) in;
layout(binding = 0) readonly buffer Start { uint start[]; };
layout(binding = 1) readonly buffer SplatId { uint splatId[]; };
layout(binding = 2) readonly buffer Mean { float mean[]; };
layout(binding = 3) readonly buffer Conic { float conic[]; };
layout(binding = 4) readonly buffer Opacity { float opacity[]; };
layout(binding = 5) readonly buffer Colour { float colour[]; };
layout(binding = 6) readonly buffer Transmittance { float transmittance[]; };
layout(binding = 7) readonly buffer Walked { int walked[]; };
layout(binding = 8) readonly buffer DImage { float dImage[]; };
layout(binding = 9) readonly buffer DAccumulated { float dAccumulated[]; };
layout(binding = 10) buffer DMean { float dMean[]; };
layout(binding = 11) buffer DConic { float dConic[]; };
layout(binding = 12) buffer DOpacity { float dOpacity[]; };
layout(binding = 13) buffer DColour { float dColour[]; };
layout(push_constant) uniform Push {
  uint width;
  uint height;
  uint tilesX;
  uint reserved;
};
#include "pixel_columns.glsl"

struct Pixels {  // four rows of a column
  vec4 T;
  vec4 S;     // dA T_final - sum over the splats behind of (c . g) alpha T
  vec4 last;
  vec4 red, green, blue;  // the pixel's gradient
};

struct Sums {
  float s0, s1, s2;
  vec3 colour;
};

Pixels load(uvec2 top) {
  Pixels p = Pixels(vec4(1.0), vec4(0.0), vec4(0.0), vec4(0.0), vec4(0.0), vec4(0.0));
  for (uint k = 0u; k < 4u; ++k) {
    if (top.x >= width || top.y + k >= height) continue;
    const uint i = (top.y + k) * width + top.x;
    p.T[k] = transmittance[i];
    p.S[k] = dAccumulated[i] * p.T[k];
    p.last[k] = float(walked[i]);
    p.red[k] = dImage[3u * i];
    p.green[k] = dImage[3u * i + 1u];
    p.blue[k] = dImage[3u * i + 2u];
  }
  return p;
}

float sum4(vec4 v) { return (v.x + v.y) + (v.z + v.w); }
float max4(vec4 v) { return max(max(v.x, v.y), max(v.z, v.w)); }

void contribute(inout Pixels p, inout Sums sums, vec4 dy, float dx, Splat s, float place) {
  const vec4 q = s.conic.x * dx * dx + dy * (2.0 * s.conic.y * dx + s.conic.z * dy);
  const vec4 raw = s.opacity * exp(-0.5 * max(q, vec4(0.0)));
  const vec4 capped = min(vec4(ALPHA_MAX), raw);
  const vec4 on = vec4(greaterThanEqual(p.last, vec4(place))) * vec4(greaterThanEqual(capped, vec4(ALPHA_MIN))) *
                  vec4(greaterThanEqual(q, vec4(0.0)));
  const vec4 alpha = on * capped;
  const vec4 inverse = 1.0 / (1.0 - alpha);
  p.T *= inverse;
  const vec4 weight = alpha * p.T;
  const vec4 cg = s.colour.r * p.red + s.colour.g * p.green + s.colour.b * p.blue;
  const vec4 dAlpha = p.T * cg + p.S * inverse;
  p.S -= cg * weight;
  const vec4 dq = -0.5 * alpha * dAlpha * vec4(lessThan(raw, vec4(ALPHA_MAX)));
  sums.s0 += sum4(dq);
  sums.s1 += sum4(dq * dy);
  sums.s2 += sum4(dq * dy * dy);
  sums.colour += vec3(sum4(weight * p.red), sum4(weight * p.green), sum4(weight * p.blue));
}

// One level of the butterfly: of two values a pair of invocations each keeps one, summed over the pair.
float fold(float x, float y, uint bit) {
  const bool upper = (gl_SubgroupInvocationID & bit) != 0u;
  return (upper ? y : x) + subgroupShuffleXor(upper ? x : y, bit);
}

void accumulate(uint i, Sums s, float dx, Splat splat) {
  const float dq = s.s0, dqdx = s.s0 * dx, dqdy = s.s1;
  const vec2 place = -2.0 * vec2(splat.conic.x * dqdx + splat.conic.y * dqdy, splat.conic.y * dqdx + splat.conic.z * dqdy);
  // Invocation k is left with the k-th of: conic 0 1 2, mean 0 1, colour 0 1 2.
  const float c01 = fold(dqdx * dx, 2.0 * dqdy * dx, 1u), c2m0 = fold(s.s2, place.x, 1u);
  const float m1r = fold(place.y, s.colour.r, 1u), gb = fold(s.colour.g, s.colour.b, 1u);
  const float sum = fold(fold(c01, c2m0, 2u), fold(m1r, gb, 2u), 4u);
  float total = dq + subgroupShuffleXor(dq, 1u);
  total += subgroupShuffleXor(total, 2u);
  total += subgroupShuffleXor(total, 4u);

  const uint lane = gl_SubgroupInvocationID;
  if (lane < 3u) atomicAdd(dConic[3u * i + lane], sum);
  if (lane == 3u || lane == 4u) atomicAdd(dMean[2u * i + lane - 3u], sum);
  if (lane > 4u) atomicAdd(dColour[3u * i + lane - 5u], sum);
  if (lane == 0u) atomicAdd(dOpacity[i], -2.0 * total / splat.opacity);
}

void main() {
  const uint tile = gl_WorkGroupID.y * tilesX + gl_WorkGroupID.x;
  const uint first = start[tile];
  const uvec2 corner = blockCorner();
  const uint lane = gl_SubgroupInvocationID;
  const uvec2 top = corner + uvec2(lane, 0u);
  const vec2 centre = vec2(top) + 0.5;
  Pixels a = load(top), b = load(top + uvec2(0u, 4u));

  // From the last splat that any pixel of the block walked to, eight at a time, invocation 0 the one behind.
  int batch = int(subgroupMax(max4(max(a.last, b.last))));
  if (batch > 0) do {
    const int mineAt = batch - 1 - int(lane);
    const uint id = splatId[first + uint(max(mineAt, 0))];
    const Splat mine = loadSplat(id);
    uint reaching = subgroupBallot(mineAt >= 0 && reachesBlock(mine, vec2(corner))).x;
    do {
      const uint j = findLSB(reaching) & 7u;
      const bool reached = reaching != 0u;
      reaching &= reaching - 1u;
      const Splat s = shuffleSplat(mine, j);
      const vec2 d = centre - s.mean;
      const float place = float(batch - int(j));
      Sums sums = Sums(0.0, 0.0, 0.0, vec3(0.0));
      contribute(a, sums, d.y + kRowsA, d.x, s, place);
      contribute(b, sums, d.y + kRowsB, d.x, s, place);
      if (reached) accumulate(subgroupShuffle(id, j), sums, d.x, s);
    } while (reaching != 0u);
    batch -= int(kRows);
  } while (batch > 0);
}
