#version 450
// Counts, for every run of splats in depth order, how many of them touch each tile. With list_write what bin_count, bin_write
// and the sort of the instances do, for devices on which a sort costs more than a counter a tile and run: an invocation
// walks a run of its own with counters of its own.
//
// binding | name  | element | shape        | access
//     0-5 | as bin_count
//       6 | table | uint    | tiles x runs | read and write, zero before
// Push: as bin_count, then runs and one unused. No races.
#extension GL_GOOGLE_include_directive : require
#include "shared_constants.h"
#include "tile_test.glsl"
layout(local_size_x = 8) in;
#include "bin_bindings.glsl"

layout(binding = 6) buffer Table { uint table[]; };

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
        ++table[(uint(tile.y) * tilesX + uint(tile.x)) * runs + run];
      }
      ++tile.x;
      if (tile.x > f.last.x) tile = ivec2(f.first.x, tile.y + 1);
    } while (drawn && tile.y <= f.last.y);
  }
}
