#version 450
// rasterize_forward with 32 pixels an invocation, for devices on which a load costs as much as many multiplications and
// shared memory more than a load. Same bindings, same results.
//
// Bindings and push constants: as rasterize_forward. No shared memory, no barriers. Subgroups of eight.
#extension GL_GOOGLE_include_directive : require
#extension GL_KHR_shader_subgroup_basic : require
#extension GL_KHR_shader_subgroup_vote : require
#extension GL_KHR_shader_subgroup_ballot : require
#extension GL_KHR_shader_subgroup_shuffle : require
#include "gs/render/kernels/interfaces.h"
#include "gs/render/kernels/include/shared_constants.h"

layout(local_size_x = 8) in;
DECLARE_BUFFERS(RASTERIZE_FORWARD)
DECLARE_PUSH(RASTERIZE_FORWARD)
#include "gs/render/kernels/include/pixel_columns.glsl"

struct Pixels {  // four rows of a column
  vec4 T;
  vec4 red, green, blue;
  vec4 last;
};
struct Column {  // of a block
  Pixels upper, lower;
};

void blend(inout Pixels p, vec4 dy, float dx, Splat s, float place) {
  const vec4 q = s.conic.x * dx * dx + dy * (2.0 * s.conic.y * dx + s.conic.z * dy);
  const vec4 alpha = min(vec4(ALPHA_MAX), s.opacity * exp(-0.5 * q));
  vec4 weight = where(greaterThanEqual(alpha, vec4(ALPHA_MIN)), alpha * p.T);
  weight = where(greaterThanEqual(q, vec4(0.0)), weight);
  weight = where(greaterThanEqual(p.T, vec4(TRANSMITTANCE_MIN)), weight);
  p.red += weight * s.colour.r;
  p.green += weight * s.colour.g;
  p.blue += weight * s.colour.b;
  p.T -= weight;
  p.last = mix(p.last, vec4(place), greaterThan(weight, vec4(0.0)));
}

float mostLight(Column c) {
  const vec4 most = max(c.upper.T, c.lower.T);
  return max(max(most.x, most.y), max(most.z, most.w));
}

// Blends those of the eight splats that reach the block; the first of them has this place in the list.
void blendBatch(inout Column column, uint block, Splat mine, bool listed, uint place) {
  const vec2 centre = vec2(blockCorner(block) + uvec2(gl_SubgroupInvocationID, 0u)) + 0.5;
  const bool unfinished = subgroupAny(mostLight(column) >= TRANSMITTANCE_MIN);
  uint reaching = subgroupBallot(unfinished && listed && reachesBlock(mine, vec2(blockCorner(block)))).x;
  do {
    const uint j = findLSB(reaching) & 7u;
    Splat s = shuffleSplat(mine, j);
    s.opacity = reaching != 0u ? s.opacity : 0.0;
    reaching &= reaching - 1u;
    const vec2 d = centre - s.mean;
    blend(column.upper, d.y + kRowsA, d.x, s, float(place + j));
    blend(column.lower, d.y + kRowsB, d.x, s, float(place + j));
  } while (reaching != 0u);
}

// Pixels outside the image are finished before they begin.
Column unblended(uint block) {
  const uvec2 top = blockCorner(block) + uvec2(gl_SubgroupInvocationID, 0u);
  const vec4 T = vec4(top.x < width ? 1.0 : 0.0), zero = vec4(0.0);
  return Column(Pixels(T * vec4(lessThan(vec4(top.y) + kRowsA, vec4(height))), zero, zero, zero, zero),
                Pixels(T * vec4(lessThan(vec4(top.y) + kRowsB, vec4(height))), zero, zero, zero, zero));
}

void store(Pixels p, uvec2 top) {
  for (uint k = 0u; k < 4u; ++k) {
    if (top.x >= width || top.y + k >= height) continue;
    const uint i = (top.y + k) * width + top.x;
    image[3u * i] = p.red[k];
    image[3u * i + 1u] = p.green[k];
    image[3u * i + 2u] = p.blue[k];
    alpha[i] = 1.0 - p.T[k];
    transmittance[i] = p.T[k];
    lastContributor[i] = int(p.last[k]);
  }
}

void store(Column c, uint block) {
  const uvec2 top = blockCorner(block) + uvec2(gl_SubgroupInvocationID, 0u);
  store(c.upper, top);
  store(c.lower, top + uvec2(0u, 4u));
}

void main() {
  const uint tile = gl_WorkGroupID.y * tilesX + gl_WorkGroupID.x;
  const uint first = start[tile], end = start[tile + 1u];
  const uint lane = gl_SubgroupInvocationID;
  Column c0 = unblended(0u), c1 = unblended(1u), c2 = unblended(2u), c3 = unblended(3u);
  uint batch = first;
  bool unfinished;
  if (first < end) do {
    const bool listed = batch + lane < end;
    const Splat mine = loadSplat(splatId[min(batch + lane, end - 1u)]);
    const uint place = batch - first + 1u;
    blendBatch(c0, 0u, mine, listed, place);
    blendBatch(c1, 1u, mine, listed, place);
    blendBatch(c2, 2u, mine, listed, place);
    blendBatch(c3, 3u, mine, listed, place);
    unfinished = max(max(mostLight(c0), mostLight(c1)), max(mostLight(c2), mostLight(c3))) >= TRANSMITTANCE_MIN;
    batch += kRows;
  } while (batch < end && subgroupAny(unfinished));
  store(c0, 0u);
  store(c1, 1u);
  store(c2, 2u);
  store(c3, 3u);
}
