#version 450
// rasterize_forward with eight pixels an invocation, for devices on which a load costs as much as many multiplications and
// shared memory more than a load. Same bindings, same results. A splat is evaluated only by subgroups that have a pixel
// within its reach.
//
// Bindings and push constants: as rasterize_forward. No shared memory, no barriers.
#extension GL_GOOGLE_include_directive : require
#extension GL_KHR_shader_subgroup_basic : require
#extension GL_KHR_shader_subgroup_vote : require
#include "shared_constants.h"

layout(local_size_x = 32) in;
layout(binding = 0) readonly buffer Start { uint start[]; };
layout(binding = 1) readonly buffer SplatId { uint splatId[]; };
layout(binding = 2) readonly buffer Mean { float mean[]; };
layout(binding = 3) readonly buffer Conic { float conic[]; };
layout(binding = 4) readonly buffer Opacity { float opacity[]; };
layout(binding = 5) readonly buffer Colour { float colour[]; };
layout(binding = 6) writeonly buffer Img { float image[]; };
layout(binding = 7) writeonly buffer Accumulated { float accumulated[]; };
layout(binding = 8) writeonly buffer Transmittance { float transmittance[]; };
layout(binding = 9) writeonly buffer Walked { int walked[]; };
layout(push_constant) uniform Push {
  uint width;
  uint height;
  uint tilesX;
  uint reserved;
};
#include "pixel_columns.glsl"

struct Pixels {  // four rows of a column
  vec4 T;
  vec4 red, green, blue;
  vec4 last;
};

void blend(inout Pixels p, vec4 dy, float atRow0, float slope, float c, float o, vec3 splatColour, float place) {
  const vec4 q = atRow0 + dy * (slope + c * dy);
  const vec4 alpha = min(vec4(ALPHA_MAX), o * exp(-0.5 * q));
  const bvec4 unfinished = greaterThanEqual(p.T, vec4(TRANSMITTANCE_MIN));
  const bvec4 seen = greaterThanEqual(alpha, vec4(ALPHA_MIN));
  const bvec4 sane = greaterThanEqual(q, vec4(0.0));
  const vec4 on = vec4(unfinished) * vec4(seen) * vec4(sane);
  const vec4 weight = on * alpha * p.T;
  p.red += weight * splatColour.r;
  p.green += weight * splatColour.g;
  p.blue += weight * splatColour.b;
  p.T -= weight;
  p.last = mix(p.last, vec4(place), on);
}

void store(Pixels p, uvec2 top) {
  for (uint k = 0u; k < 4u; ++k) {
    if (top.x >= width || top.y + k >= height) continue;
    const uint i = (top.y + k) * width + top.x;
    image[3u * i] = p.red[k];
    image[3u * i + 1u] = p.green[k];
    image[3u * i + 2u] = p.blue[k];
    accumulated[i] = 1.0 - p.T[k];
    transmittance[i] = p.T[k];
    walked[i] = int(p.last[k]);
  }
}

void main() {
  const uint tile = gl_WorkGroupID.y * tilesX + gl_WorkGroupID.x;
  const uint first = start[tile], end = start[tile + 1u];
  const uvec2 top = columnTop();
  const vec2 centre = vec2(top) + 0.5;

  Pixels a = Pixels(vec4(1.0), vec4(0.0), vec4(0.0), vec4(0.0), vec4(0.0));
  Pixels b = a;
  // Columns and rows outside the image are finished before they begin.
  const float inside = top.x < width ? 1.0 : 0.0;
  const vec4 insideA = inside * vec4(lessThan(vec4(top.y) + kRowsA, vec4(height)));
  const vec4 insideB = inside * vec4(lessThan(vec4(top.y) + kRowsB, vec4(height)));
  a.T = insideA;
  b.T = insideB;
  bool unfinished = inside > 0.0 && top.y < height;

  uint k = first;
  while (k < end) {
    // On to the next splat that reaches a pixel of this subgroup. A loop of its own: where branches are masks, only loops
    // leave work out.
    uint i = 0u;
    vec2 d = vec2(0.0);
    vec3 co = vec3(0.0);
    float o = 0.0;
    bool reached = false;
    do {
      i = splatId[k];
      ++k;
      d = centre - vec2(mean[2u * i], mean[2u * i + 1u]);
      co = vec3(conic[3u * i], conic[3u * i + 1u], conic[3u * i + 2u]);
      o = opacity[i];
      reached = subgroupAny(unfinished && o * exp(-0.5 * leastOnColumn(co, d)) >= ALPHA_MIN * 0.999);
    } while (!reached && k < end);
    if (!reached) break;

    const vec3 splatColour = vec3(colour[3u * i], colour[3u * i + 1u], colour[3u * i + 2u]);
    const float atRow0 = co.x * d.x * d.x, slope = 2.0 * co.y * d.x;
    const float place = float(k - first);
    blend(a, d.y + kRowsA, atRow0, slope, co.z, o, splatColour, place);
    blend(b, d.y + kRowsB, atRow0, slope, co.z, o, splatColour, place);
    const vec4 most = max(a.T, b.T);
    unfinished = max(max(most.x, most.y), max(most.z, most.w)) >= TRANSMITTANCE_MIN;
    if (!subgroupAny(unfinished)) break;
  }
  store(a, top);
  store(b, top + uvec2(0u, 4u));
}
