#version 450
// Blends the splats of every tile front to back: one work group a tile, one invocation a pixel.
//
//   alpha = min(0.999, opacity exp(-q / 2)), q = a dx^2 + 2 b dx dy + c dy^2, left out below 1/255
//   colour += c alpha T, A += alpha T, T *= 1 - alpha; finished after the splat that brings T under 0.0001
// Kerbl et al. 2023.
//
// binding | name            | element | shape     | access
//       0 | start           | uint    | tiles + 1 | read
//       1 | splatId         | uint    | M         | read, by tile and depth
//       2 | mean            | float   | N x 2     | read
//       3 | conic           | float   | N x 3     | read
//       4 | opacity         | float   | N         | read, activated
//       5 | colour          | float   | N x 3     | read
//       6 | image           | float   | H x W x 3 | write
//       7 | alpha           | float   | H x W     | write
//       8 | transmittance   | float   | H x W     | write
//       9 | lastContributor | int     | H x W     | write, list entries up to the last one blended
// Push: width, height, tiles in x, unused. The batches in shared memory are fenced by barriers on both sides.
#extension GL_GOOGLE_include_directive : require
#include "gs/render/kernels/interfaces.h"
#include "gs/render/kernels/include/shared_constants.h"

layout(local_size_x = 16, local_size_y = 16) in;
DECLARE_BUFFERS(RASTERIZE_FORWARD)
DECLARE_PUSH(RASTERIZE_FORWARD)

const uint kBatch = 256u;
shared vec2 sMean[kBatch];
shared vec4 sConicOpacity[kBatch];
shared vec3 sColour[kBatch];
shared uint sFinished;

void loadSplat(uint slot, uint i) {
  sMean[slot] = vec2(mean[2u * i], mean[2u * i + 1u]);
  sConicOpacity[slot] = vec4(conic[3u * i], conic[3u * i + 1u], conic[3u * i + 2u], opacity[i]);
  sColour[slot] = vec3(colour[3u * i], colour[3u * i + 1u], colour[3u * i + 2u]);
}

void main() {
  const uint tile = gl_WorkGroupID.y * tilesX + gl_WorkGroupID.x;
  const uint first = start[tile], end = start[tile + 1u];
  const uvec2 pixel = gl_GlobalInvocationID.xy;
  const vec2 centre = vec2(pixel) + 0.5;
  const bool inside = pixel.x < width && pixel.y < height;

  float T = 1.0, A = 0.0;
  vec3 c = vec3(0.0);
  int last = 0;
  bool finished = !inside;
  if (gl_LocalInvocationIndex == 0u) sFinished = 0u;
  barrier();
  if (finished) atomicAdd(sFinished, 1u);

  for (uint batch = first; batch < end; batch += kBatch) {
    barrier();
    if (sFinished == TILE_SIZE * TILE_SIZE) break;
    if (batch + gl_LocalInvocationIndex < end) {
      loadSplat(gl_LocalInvocationIndex, splatId[batch + gl_LocalInvocationIndex]);
    }
    barrier();
    const uint n = min(kBatch, end - batch);
    for (uint j = 0u; j < n && !finished; ++j) {
      const vec2 d = centre - sMean[j];
      const vec4 co = sConicOpacity[j];
      const float power = -0.5 * (co.x * d.x * d.x + 2.0 * co.y * d.x * d.y + co.z * d.y * d.y);
      if (power > 0.0) continue;
      const float alpha = min(ALPHA_MAX, co.w * exp(power));
      if (alpha < ALPHA_MIN) continue;
      c += sColour[j] * (alpha * T);
      A += alpha * T;
      T *= 1.0 - alpha;
      last = int(batch - first + j) + 1;
      if (T < TRANSMITTANCE_MIN) {
        finished = true;
        atomicAdd(sFinished, 1u);
      }
    }
    barrier();
  }

  if (!inside) return;
  const uint p = pixel.y * width + pixel.x;
  for (uint k = 0u; k < 3u; ++k) image[3u * p + k] = c[k];
  alpha[p] = A;
  transmittance[p] = T;
  lastContributor[p] = last;
}
