#version 450
// rasterize_forward with two pixels an invocation; a subgroup skips the splats that do not reach its block. Same bindings,
// same results.
//
// Bindings and push constants: as rasterize_forward. The batches in shared memory are fenced by barriers on both sides.
#extension GL_GOOGLE_include_directive : require
#extension GL_KHR_shader_subgroup_basic : require
#extension GL_KHR_shader_subgroup_vote : require
#extension GL_KHR_shader_subgroup_arithmetic : require
#extension GL_KHR_shader_subgroup_ballot : require
#include "gs/render/kernels/interfaces.h"
#include "gs/render/kernels/include/shared_constants.h"

layout(local_size_x = 128) in;
DECLARE_BUFFERS(RASTERIZE_FORWARD)
DECLARE_PUSH(RASTERIZE_FORWARD)
#include "gs/render/kernels/include/pixel_pairs.glsl"

shared uint sFinished;

struct Pair {
  vec2 T;
  vec2 red, green, blue;
  ivec2 last;
};

void blend(inout Pair p, uint slot, vec2 centre, int place) {
  const vec4 shape = sShape[slot], look = sLook[slot];
  const float dx = centre.x - shape.x;
  const vec2 dy = vec2(centre.y, centre.y + 1.0) - shape.y;
  const vec2 form = formOnPair(shape, look, dx, dy);
  const vec2 alpha = min(vec2(ALPHA_MAX), look.y * exp2(-form));
  vec2 weight = where(greaterThanEqual(alpha, vec2(ALPHA_MIN)), alpha * p.T);
  weight = where(greaterThanEqual(form, vec2(0.0)), weight);
  weight = where(greaterThanEqual(p.T, vec2(TRANSMITTANCE_MIN)), weight);
  p.red += weight * look.z;
  p.green += weight * look.w;
  p.blue += weight * sBlue[slot];
  p.T -= weight;
  p.last.x = weight.x > 0.0 ? place : p.last.x;
  p.last.y = weight.y > 0.0 ? place : p.last.y;
}

bool unfinished(Pair p) { return max(p.T.x, p.T.y) >= TRANSMITTANCE_MIN; }

// Those of the `n` splats in shared memory that reach the block; the first has this place in the list.
void blendBatch(inout Pair p, uint n, Block block, vec2 centre, int place) {
  const uint lanes = lanesRunning();
  for (uint chunk = 0u; chunk < n && subgroupAny(unfinished(p)); chunk += lanes) {
    const uint mine = chunk + gl_SubgroupInvocationID;
    const uvec4 reaching = subgroupBallot(mine < n && reaches(mine, block));
    for (uint word = 0u; 32u * word < lanes; ++word) {
      for (uint bits = reaching[word]; bits != 0u; bits &= bits - 1u) {
        const uint slot = chunk + 32u * word + uint(findLSB(bits));
        blend(p, slot, centre, place + int(slot));
      }
    }
  }
}

void main() {
  const uint tile = gl_WorkGroupID.y * tilesX + gl_WorkGroupID.x;
  const uint first = start[tile], end = start[tile + 1u];
  const uvec2 upper = upperPixel();
  const vec2 centre = vec2(upper) + 0.5;
  const Block block = ownBlock(upper);

  // Pixels outside the image are finished before they begin.
  const vec2 zero = vec2(0.0);
  Pair p = Pair(vec2(upper.x < width && upper.y < height, upper.x < width && upper.y + 1u < height), zero, zero, zero,
                ivec2(0));
  bool counted = false;
  if (gl_LocalInvocationIndex == 0u) sFinished = 0u;
  for (uint batch = first; batch < end; batch += kGroup) {
    barrier();
    if (!counted && !unfinished(p)) {
      counted = true;
      atomicAdd(sFinished, 1u);
    }
    const uint mine = batch + gl_LocalInvocationIndex;
    if (mine < end) loadSplat(gl_LocalInvocationIndex, splatId[mine]);
    barrier();
    if (sFinished == kGroup) break;
    blendBatch(p, min(kGroup, end - batch), block, centre, int(batch - first) + 1);
  }

  for (uint k = 0u; k < 2u; ++k) {
    if (upper.x >= width || upper.y + k >= height) continue;
    const uint i = (upper.y + k) * width + upper.x;
    image[3u * i] = p.red[k];
    image[3u * i + 1u] = p.green[k];
    image[3u * i + 2u] = p.blue[k];
    alpha[i] = 1.0 - p.T[k];
    transmittance[i] = p.T[k];
    lastContributor[i] = p.last[k];
  }
}
