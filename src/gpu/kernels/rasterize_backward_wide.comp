#version 450
// rasterize_backward with eight pixels an invocation; see rasterize_forward_wide. The sums over a column need three numbers
// where a pixel needs six, for dx is the same for all of it:
//
//   s0 = sum dq, s1 = sum dq dy, s2 = sum dq dy^2 give the conic's, the mean's and (by alpha = o G) the opacity's gradient
// Each sum is taken over the subgroup, and neighbouring invocations add neighbouring values.
//
// Bindings and push constants: as rasterize_backward with NATIVE_ATOMIC=1. No shared memory, no barriers.
#extension GL_GOOGLE_include_directive : require
#extension GL_EXT_shader_atomic_float : require
#extension GL_KHR_shader_subgroup_basic : require
#extension GL_KHR_shader_subgroup_vote : require
#extension GL_KHR_shader_subgroup_arithmetic : require
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

void contribute(inout Pixels p, inout Sums sums, vec4 dy, float atRow0, float slope, float c, float o, vec3 splatColour,
                float place) {
  const vec4 q = atRow0 + dy * (slope + c * dy);
  const vec4 raw = o * exp(-0.5 * max(q, vec4(0.0)));
  const vec4 capped = min(vec4(ALPHA_MAX), raw);
  const vec4 on = vec4(greaterThanEqual(p.last, vec4(place))) * vec4(greaterThanEqual(capped, vec4(ALPHA_MIN))) *
                  vec4(greaterThanEqual(q, vec4(0.0)));
  const vec4 alpha = on * capped;
  const vec4 inverse = 1.0 / (1.0 - alpha);
  p.T *= inverse;
  const vec4 weight = alpha * p.T;
  const vec4 cg = splatColour.r * p.red + splatColour.g * p.green + splatColour.b * p.blue;
  const vec4 dAlpha = p.T * cg + p.S * inverse;
  p.S -= cg * weight;
  const vec4 dq = -0.5 * alpha * dAlpha * vec4(lessThan(raw, vec4(ALPHA_MAX)));
  sums.s0 += sum4(dq);
  sums.s1 += sum4(dq * dy);
  sums.s2 += sum4(dq * dy * dy);
  sums.colour += vec3(sum4(weight * p.red), sum4(weight * p.green), sum4(weight * p.blue));
}

void accumulate(uint i, Sums s, float dx, vec3 co, float o) {
  const float total = subgroupAdd(s.s0);
  const vec2 along = subgroupAdd(vec2(s.s0 * dx, s.s1));  // sum of dq dx, dq dy
  const vec3 shape = subgroupAdd(vec3(s.s0 * dx * dx, 2.0 * s.s1 * dx, s.s2));
  const vec3 light = subgroupAdd(s.colour);
  const vec2 place = -2.0 * vec2(co.x * along.x + co.y * along.y, co.y * along.x + co.z * along.y);
  const uint lane = gl_SubgroupInvocationID;
  for (uint k = lane; k < 3u; k += gl_SubgroupSize) {
    atomicAdd(dConic[3u * i + k], k == 0u ? shape.x : k == 1u ? shape.y : shape.z);
    atomicAdd(dColour[3u * i + k], k == 0u ? light.x : k == 1u ? light.y : light.z);
    if (k < 2u) atomicAdd(dMean[2u * i + k], k == 0u ? place.x : place.y);
    if (k == 0u) atomicAdd(dOpacity[i], -2.0 * total / o);
  }
}

void main() {
  const uint tile = gl_WorkGroupID.y * tilesX + gl_WorkGroupID.x;
  const uint first = start[tile];
  const uvec2 top = columnTop();
  const vec2 centre = vec2(top) + 0.5;
  Pixels a = load(top), b = load(top + uvec2(0u, 4u));
  const float last = max4(max(a.last, b.last));

  int k = int(subgroupMax(last));
  while (k > 0) {
    // Back to the next splat that reaches a pixel of this subgroup that walked that far.
    uint i = 0u;
    vec2 d = vec2(0.0);
    vec3 co = vec3(0.0);
    float o = 0.0;
    bool reached = false;
    int place = 0;
    do {
      place = k;
      --k;
      i = splatId[first + uint(k)];
      d = centre - vec2(mean[2u * i], mean[2u * i + 1u]);
      co = vec3(conic[3u * i], conic[3u * i + 1u], conic[3u * i + 2u]);
      o = opacity[i];
      reached = subgroupAny(last >= float(place) && o * exp(-0.5 * leastOnColumn(co, d)) >= ALPHA_MIN * 0.999);
    } while (!reached && k > 0);
    if (!reached) break;

    const vec3 splatColour = vec3(colour[3u * i], colour[3u * i + 1u], colour[3u * i + 2u]);
    const float atRow0 = co.x * d.x * d.x, slope = 2.0 * co.y * d.x;
    Sums sums = Sums(0.0, 0.0, 0.0, vec3(0.0));
    contribute(a, sums, d.y + kRowsA, atRow0, slope, co.z, o, splatColour, float(place));
    contribute(b, sums, d.y + kRowsB, atRow0, slope, co.z, o, splatColour, float(place));
    accumulate(i, sums, d.x, co, o);
  }
}
