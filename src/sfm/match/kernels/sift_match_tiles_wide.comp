// sift_match_tiles_wide: sift_match_tiles for software drivers. There shared memory is slow and a load from a buffer costs
// as much as many multiplications, so an invocation takes 8 rows x 8 columns and reads them four words at a time straight
// from the buffers.
//
// binding | name           | element | shape                 | access
//       0 | first          | uvec4   | 8 a descriptor        | read
//       1 | second         | uvec4   | 8 a descriptor        | read (may be the same buffer)
//       2 | rowPartials    | uvec2   | tile columns x count1 | write: the best two keys
//       3 | columnPartials | uvec2   | tile rows x count2    | write: the best two keys
//
// push: start1, count1, start2, count2 (descriptors), firstTile, tileColumns (= ceil(count2/64))
//
// Rows and columns past the counts read the last one and count as zero. Shared memory holds the keys of every invocation
// for the reduction behind the barrier.
#version 450
#extension GL_GOOGLE_include_directive : require
#extension GL_EXT_control_flow_attributes : require
#include "sfm/match/kernels/interfaces.h"
layout(local_size_x = 8, local_size_y = 8) in;

#define DESCRIPTOR_WORD uvec4
DECLARE_BUFFERS(SIFT_MATCH_TILES)
DECLARE_PUSH(SIFT_MATCH_TILES)

#include "sfm/match/kernels/sift_keys.glsl"

const uint kSide = 8u;   // of the group, and of an invocation's share
const uint kQuads = 8u;  // uvec4 a descriptor

shared uvec2 row_keys[kTile * kSide];
shared uvec2 column_keys[kTile * kSide];

void main() {
  const uint tile = firstTile + gl_WorkGroupID.x;
  const uint row_tile = tile / tileColumns, column_tile = tile % tileColumns;
  const uint x = gl_LocalInvocationID.x, y = gl_LocalInvocationID.y;
  const uint first_row = row_tile * kTile + y * kSide, first_column = column_tile * kTile + x * kSide;

  uint row_at[kSide], column_at[kSide];
  float sums[kSide][kSide];
  [[unroll]] for (uint i = 0u; i < kSide; ++i) {
    row_at[i] = (start1 + min(first_row + i, count1 - 1u)) * kQuads;
    column_at[i] = (start2 + min(first_column + i, count2 - 1u)) * kQuads;
    [[unroll]] for (uint k = 0u; k < kSide; ++k) sums[i][k] = 0.0;
  }
  for (uint quad = 0u; quad < kQuads; ++quad) {
    uvec4 rows[kSide], columns[kSide];
    [[unroll]] for (uint i = 0u; i < kSide; ++i) {
      rows[i] = first[row_at[i] + quad];
      columns[i] = second[column_at[i] + quad];
    }
    [[unroll]] for (uint word = 0u; word < 4u; ++word) {
      vec4 column[kSide];
      [[unroll]] for (uint c = 0u; c < kSide; ++c) column[c] = bytesOf(columns[c][word]);
      [[unroll]] for (uint r = 0u; r < kSide; ++r) {
        const vec4 row = bytesOf(rows[r][word]);
        [[unroll]] for (uint c = 0u; c < kSide; ++c) sums[r][c] += dot(row, column[c]);
      }
    }
  }

  [[unroll]] for (uint i = 0u; i < kSide; ++i) {
    uvec2 row = uvec2(0u), column = uvec2(0u);
    [[unroll]] for (uint k = 0u; k < kSide; ++k) {
      const bool row_inside = first_row + i < count1 && first_column + k < count2;
      const bool column_inside = first_row + k < count1 && first_column + i < count2;
      take(row, keyOf(row_inside ? uint(sums[i][k]) : 0u, x * kSide + k));
      take(column, keyOf(column_inside ? uint(sums[k][i]) : 0u, y * kSide + k));
    }
    row_keys[(y * kSide + i) * kSide + x] = row;
    column_keys[(x * kSide + i) * kSide + y] = column;
  }
  barrier();

  const uint place = gl_LocalInvocationIndex;
  const uint row = row_tile * kTile + place, column = column_tile * kTile + place;
  uvec2 row_two = uvec2(0u), column_two = uvec2(0u);
  for (uint i = place * kSide; i < (place + 1u) * kSide; ++i) {
    take(row_two, row_keys[i].x);
    take(row_two, row_keys[i].y);
    take(column_two, column_keys[i].x);
    take(column_two, column_keys[i].y);
  }
  if (row < count1) rowPartials[column_tile * count1 + row] = row_two;
  if (column < count2) columnPartials[row_tile * count2 + column] = column_two;
}
