#version 450
// Where each tile's instances begin in the sorted list: start[t] is the first position whose key is at least t (binary
// search), so tile t owns start[t] .. start[t + 1] - 1.
//
// binding | name    | element | shape     | access
//       0 | tileKey | uint    | M         | read, ascending
//       1 | start   | uint    | tiles + 1 | write
// Push: instances (M), tiles. One invocation an entry, no races.
#extension GL_GOOGLE_include_directive : require
#include "gs/render/kernels/interfaces.h"
#include "gpu/kernels/include/item_index.glsl"

layout(local_size_x = 256) in;
DECLARE_BUFFERS(TILE_RANGES)
DECLARE_PUSH(TILE_RANGES)

void main() {
  const uint t = itemIndex();
  if (t > tiles) return;
  uint low = 0u, high = instances;
  while (low < high) {
    const uint middle = low + (high - low) / 2u;
    if (tileKey[middle] < t) {
      low = middle + 1u;
    } else {
      high = middle;
    }
  }
  start[t] = low;
}
