#version 450
// rasterize_backward with 32 pixels an invocation; see rasterize_forward_wide. The sums over a column need three numbers
// where a pixel needs six, for dx is the same for all of it:
//
//   s0 = sum dq, s1 = sum dq dy, s2 = sum dq dy^2 give the conic's, the mean's and (by alpha = o G) the opacity's gradient
// Eight of the nine sums over the subgroup are taken together by a butterfly that leaves each in an invocation of its own.
// They are kept there, for the eight splats of a batch, until all four blocks are done, so that a splat is added to once a
// tile.
//
// Bindings and push constants: as rasterize_backward with NATIVE_ATOMIC=1. No shared memory, no barriers. Subgroups of
// eight.
#extension GL_GOOGLE_include_directive : require
#extension GL_EXT_control_flow_attributes : require
#extension GL_EXT_shader_atomic_float : require
#extension GL_KHR_shader_subgroup_basic : require
#extension GL_KHR_shader_subgroup_vote : require
#extension GL_KHR_shader_subgroup_arithmetic : require
#extension GL_KHR_shader_subgroup_ballot : require
#extension GL_KHR_shader_subgroup_shuffle : require
#include "gs/render/kernels/interfaces.h"
#include "gs/render/kernels/include/shared_constants.h"

layout(local_size_x = 8) in;
#define ACCUMULATOR float
DECLARE_BUFFERS(RASTERIZE_BACKWARD)
DECLARE_PUSH(RASTERIZE_BACKWARD)
#include "gs/render/kernels/include/pixel_columns.glsl"

const float kZeros[8] = float[](0.0, 0.0, 0.0, 0.0, 0.0, 0.0, 0.0, 0.0);

struct Pixels {  // four rows of a column
  vec4 T;
  vec4 S;     // dA T_final - sum over the splats behind of (c . g) alpha T
  vec4 last;
  vec4 red, green, blue;  // the pixel's gradient
};

struct Column {  // of a block
  Pixels upper, lower;
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
    p.S[k] = dAlpha[i] * p.T[k];
    p.last[k] = float(lastContributor[i]);
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
  const vec4 raw = s.opacity * exp(-0.5 * q);
  const vec4 capped = min(vec4(ALPHA_MAX), raw);
  vec4 alpha = where(greaterThanEqual(p.last, vec4(place)), capped);
  alpha = where(greaterThanEqual(capped, vec4(ALPHA_MIN)), alpha);
  alpha = where(greaterThanEqual(q, vec4(0.0)), alpha);
  const vec4 inverse = 1.0 / (1.0 - alpha);
  p.T *= inverse;
  const vec4 weight = alpha * p.T;
  const vec4 cg = s.colour.r * p.red + s.colour.g * p.green + s.colour.b * p.blue;
  const vec4 dAlpha = p.T * cg + p.S * inverse;
  p.S -= cg * weight;
  const vec4 dq = where(lessThan(raw, vec4(ALPHA_MAX)), -0.5 * alpha * dAlpha);
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

// What a batch of eight splats has gathered: of splat j, invocation k holds in shares[j] the k-th of conic 0 1 2, mean 0 1
// and colour 0 1 2, and all hold sum dq in dqs[j].
struct Batch {
  float shares[8], dqs[8];
};

void accumulate(inout Batch batch, uint j, Sums s, float dx, Splat splat) {
  const float dq = s.s0, dqdx = s.s0 * dx, dqdy = s.s1;
  const vec2 place = -2.0 * vec2(splat.conic.x * dqdx + splat.conic.y * dqdy, splat.conic.y * dqdx + splat.conic.z * dqdy);
  const float c01 = fold(dqdx * dx, 2.0 * dqdy * dx, 1u), c2m0 = fold(s.s2, place.x, 1u);
  const float m1r = fold(place.y, s.colour.r, 1u), gb = fold(s.colour.g, s.colour.b, 1u);
  const float sum = fold(fold(c01, c2m0, 2u), fold(m1r, gb, 2u), 4u);
  float total = dq + subgroupShuffleXor(dq, 1u);
  total += subgroupShuffleXor(total, 2u);
  total += subgroupShuffleXor(total, 4u);
  [[unroll]] for (uint k = 0u; k < 8u; ++k) {
    batch.shares[k] += k == j ? sum : 0.0;
    batch.dqs[k] += k == j ? total : 0.0;
  }
}

// The eight splats, the last of which has this place in the list, on one block.
void contributeBatch(inout Column column, inout Batch batch, inout uint reached, uint block, Splat mine, bool listed,
                     int place) {
  const vec2 centre = vec2(blockCorner(block) + uvec2(gl_SubgroupInvocationID, 0u)) + 0.5;
  uint reaching = subgroupBallot(listed && reachesBlock(mine, vec2(blockCorner(block)))).x;
  reached |= reaching;
  do {
    const uint j = findLSB(reaching) & 7u;
    Splat s = shuffleSplat(mine, j);
    const float on = reaching != 0u ? 1.0 : 0.0;
    s.opacity *= on;
    reaching &= reaching - 1u;
    const vec2 d = centre - s.mean;
    Sums sums = Sums(0.0, 0.0, 0.0, vec3(0.0));
    contribute(column.upper, sums, d.y + kRowsA, d.x, s, float(place - int(j)));
    contribute(column.lower, sums, d.y + kRowsB, d.x, s, float(place - int(j)));
    accumulate(batch, j, sums, d.x, s);
  } while (reaching != 0u);
}

Column load(uint block) {
  const uvec2 top = blockCorner(block) + uvec2(gl_SubgroupInvocationID, 0u);
  return Column(load(top), load(top + uvec2(0u, 4u)));
}

float lastOf(Column c) { return max4(max(c.upper.last, c.lower.last)); }

void main() {
  const uint tile = gl_WorkGroupID.y * tilesX + gl_WorkGroupID.x;
  const uint first = start[tile];
  const uint lane = gl_SubgroupInvocationID;
  Column c0 = load(0u), c1 = load(1u), c2 = load(2u), c3 = load(3u);

  // From the last splat that any pixel walked to, eight at a time, invocation 0 the one behind.
  int place = int(subgroupMax(max(max(lastOf(c0), lastOf(c1)), max(lastOf(c2), lastOf(c3)))));
  if (place > 0) do {
    const int mineAt = place - 1 - int(lane);
    const uint id = splatId[first + uint(max(mineAt, 0))];
    const Splat mine = loadSplat(id);
    const bool listed = mineAt >= 0;
    Batch batch = Batch(kZeros, kZeros);
    uint reached = 0u;
    contributeBatch(c0, batch, reached, 0u, mine, listed, place);
    contributeBatch(c1, batch, reached, 1u, mine, listed, place);
    contributeBatch(c2, batch, reached, 2u, mine, listed, place);
    contributeBatch(c3, batch, reached, 3u, mine, listed, place);

    float dq = 0.0;
    [[unroll]] for (uint j = 0u; j < 8u; ++j) {
      const uint i = subgroupShuffle(id, j);
      const bool add = (reached & (1u << j)) != 0u;
      if (add && lane < 3u) atomicAdd(dConic[3u * i + lane], batch.shares[j]);
      if (add && (lane == 3u || lane == 4u)) atomicAdd(dMean[2u * i + lane - 3u], batch.shares[j]);
      if (add && lane > 4u) atomicAdd(dColour[3u * i + lane - 5u], batch.shares[j]);
      dq = lane == j ? batch.dqs[j] : dq;
    }
    if ((reached & (1u << lane)) != 0u) atomicAdd(dOpacity[id], -2.0 * dq / mine.opacity);
    place -= int(kRows);
  } while (place > 0);
}
