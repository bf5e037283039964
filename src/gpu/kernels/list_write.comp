#version 450
// Writes every splat into the lists of the tiles that list_count counted, at the table's places. A tile's list is in depth
// order: runs follow each other in the table, and each is walked in order.
//
// binding | name    | element | shape        | access
//     0-5 | as bin_count
//       6 | table   | uint    | tiles x runs | read and write, the next place in tile's list for a splat of run r
//       7 | splatId | uint    | M            | write
// Push: as list_count. Places are distinct; an invocation keeps to its own column of the table.
#extension GL_GOOGLE_include_directive : require
#include "shared_constants.h"
#include "tile_test.glsl"
layout(local_size_x = 8) in;
#include "bin_bindings.glsl"

layout(binding = 6) buffer Table { uint table[]; };
layout(binding = 7) writeonly buffer SplatId { uint splatId[]; };

void main() {
  const uint run = gl_GlobalInvocationID.x;
  const uint each = (count + runs - 1u) / runs;
  const uint end = run < runs ? min((run + 1u) * each, count) : 0u;
  for (uint k = run * each; k < end; ++k) {
    const uint i = order[k];
    Footprint f;
    const bool drawn = footprint(i, f);
    ivec2 tile = drawn ? f.first : ivec2(0);
    do {
      if (drawn && touchesTile(f, tile, vec2(width, height))) {
        const uint entry = (uint(tile.y) * tilesX + uint(tile.x)) * runs + run;
        const uint place = table[entry];
        table[entry] = place + 1u;
        splatId[place] = i;
      }
      ++tile.x;
      if (tile.x > f.last.x) tile = ivec2(f.first.x, tile.y + 1);
    } while (drawn && tile.y <= f.last.y);
  }
}
