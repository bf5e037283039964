#version 450
// Writes one instance (tile, splat) for every tile that bin_count counted, at the scanned offsets, so that the instances
// stand front to back.
//
// binding | name    | element | shape | access
//     0-5 | as bin_count
//       6 | offset  | uint    | N + 1 | read, exclusive prefix sum of the counts
//       7 | tileKey | uint    | M     | write, tile y * tilesX + tile x
//       8 | splatId | uint    | M     | write
// Push: as bin_count. One invocation a splat; ranges of different splats do not overlap.
#extension GL_GOOGLE_include_directive : require
#include "gs/render/kernels/interfaces.h"
#include "gs/render/kernels/include/shared_constants.h"
#include "gpu/kernels/include/item_index.glsl"
#include "gs/render/kernels/include/tile_test.glsl"

layout(local_size_x = 256) in;
DECLARE_BUFFERS(BIN_WRITE)
DECLARE_PUSH(BIN_WRITE)
#include "gs/render/kernels/include/footprint.glsl"

void main() {
  const uint k = itemIndex();
  if (k >= count) return;
  const uint i = order[k];
  Footprint f;
  if (!footprint(i, f)) return;
  uint at = offset[k];
  const uint end = offset[k + 1u];  // a device that rounds the two passes differently must not write into its neighbour
  for (int y = f.first.y; y <= f.last.y; ++y) {
    for (int x = f.first.x; x <= f.last.x; ++x) {
      if (at < end && touchesTile(f, ivec2(x, y), vec2(width, height))) {
        tileKey[at] = uint(y) * tilesX + uint(x);
        splatId[at] = i;
        ++at;
      }
    }
  }
}
