#version 450
// Counts, for every splat in depth order, the tiles that its ellipse touches. The exact test of ellipse against tile
// (after Radl et al. 2024) lists two to three times fewer than the ellipse's bounding square.
//
// binding | name       | element | shape | access
//       0 | order      | uint    | N     | read, splat indices front to back
//       1 | mean       | float   | N x 2 | read
//       2 | conic      | float   | N x 3 | read
//       3 | opacity    | float   | N     | read, activated
//       4 | halfExtent | float   | N x 2 | read
//       5 | visible    | int     | N     | read
//       6 | tileCount  | uint    | N + 1 | write the first N
// Push: count, width, height, tile size, tiles in x, tiles in y, two unused. One invocation a splat, no races.
#extension GL_GOOGLE_include_directive : require
#include "gs/render/kernels/interfaces.h"
#include "gs/render/kernels/include/shared_constants.h"
#include "gpu/kernels/include/item_index.glsl"
#include "gs/render/kernels/include/tile_test.glsl"

layout(local_size_x = 256) in;
DECLARE_BUFFERS(BIN_COUNT)
DECLARE_PUSH(BIN_COUNT)
#include "gs/render/kernels/include/footprint.glsl"

void main() {
  const uint k = itemIndex();
  if (k >= count) return;
  uint n = 0u;
  Footprint f;
  if (footprint(order[k], f)) {
    for (int y = f.first.y; y <= f.last.y; ++y) {
      for (int x = f.first.x; x <= f.last.x; ++x) {
        if (touchesTile(f, ivec2(x, y), vec2(width, height))) ++n;
      }
    }
  }
  tileCount[k] = n;
}
