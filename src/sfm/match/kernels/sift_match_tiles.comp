// sift_match_tiles: the first of three passes that match the SIFT descriptors of two images. Compares all descriptors of
// a tile of 64 x 64 and leaves for each row (of the first image) its nearest and second nearest columns in the tile, and
// for each column the same of rows.
//
// Near means a large dot product. The descriptors are bytes, so every product and sum is an integer below 2^23, which
// float32 holds without rounding: the result is exact and the same on every device. With PACKED_DOT four bytes are one
// instruction (SPV_KHR_integer_dot_product: OpUDot of packed vectors of four 8-bit components).
//
// binding | name           | element | shape                 | access
//       0 | first          | uint    | 32 words a descriptor | read
//       1 | second         | uint    | 32 words a descriptor | read (may be the same buffer)
//       2 | rowPartials    | uvec2   | tile columns x count1 | write: the best two keys
//       3 | columnPartials | uvec2   | tile rows x count2    | write: the best two keys
//
// push: start1, count1, start2, count2 (descriptors), firstTile, tileColumns (= ceil(count2/64))
//
// Group g takes tile firstTile + g in row-major order, so a long pair can be cut into any runs of tiles. An invocation
// takes 4 rows x 4 columns, 16 apart so that neighbours read neighbouring banks. The descriptors' shared memory is used
// again for the reduction, behind a barrier. Rows and columns past the counts are zero and so near to nothing.
#version 450
#extension GL_GOOGLE_include_directive : require
#extension GL_EXT_control_flow_attributes : require
#ifdef PACKED_DOT
#extension GL_EXT_spirv_intrinsics : require
#endif
#include "sfm/match/kernels/interfaces.h"
layout(local_size_x = 16, local_size_y = 16) in;

#define DESCRIPTOR_WORD uint
DECLARE_BUFFERS(SIFT_MATCH_TILES)
DECLARE_PUSH(SIFT_MATCH_TILES)

#include "sfm/match/kernels/sift_keys.glsl"

const uint kWords = 32u;            // of a descriptor
const uint kStride = kWords + 1u;   // odd: a column of words lies in different banks
const uint kSide = 16u;             // of the group
const uint kColumns = kTile * kStride;

shared uint pool[2u * kTile * kStride];

#ifdef PACKED_DOT
spirv_instruction(extensions = ["SPV_KHR_integer_dot_product"], capabilities = [6019, 6018], id = 4451)
uint packedDot(uint a, uint b, spirv_literal uint format);
#define Sum uint
#define Four uint
Four fourOf(uint word) { return word; }
Sum dotOf(Four a, Four b) { return packedDot(a, b, 0u); }
#else
#define Sum float
#define Four vec4
Four fourOf(uint word) { return bytesOf(word); }
Sum dotOf(Four a, Four b) { return dot(a, b); }
#endif

// Best two of 64 columns (or rows), of which 16 invocations have each left theirs.
uvec2 bestTwo(uint at) {
  uvec2 two = uvec2(0u);
  for (uint i = 0u; i < 2u * kSide; ++i) take(two, pool[at + i]);
  return two;
}

void main() {
  const uint tile = firstTile + gl_WorkGroupID.x;
  const uint row_tile = tile / tileColumns, column_tile = tile % tileColumns;
  const uint x = gl_LocalInvocationID.x, y = gl_LocalInvocationID.y, t = gl_LocalInvocationIndex;

  for (uint i = t; i < kTile * kWords; i += kSide * kSide) {
    const uint descriptor = i / kWords, word = i % kWords;
    const uint row = row_tile * kTile + descriptor, column = column_tile * kTile + descriptor;
    pool[descriptor * kStride + word] = row < count1 ? first[(start1 + row) * kWords + word] : 0u;
    pool[kColumns + descriptor * kStride + word] = column < count2 ? second[(start2 + column) * kWords + word] : 0u;
  }
  barrier();

  Sum sums[4][4];
  [[unroll]] for (uint r = 0u; r < 4u; ++r) {
    [[unroll]] for (uint c = 0u; c < 4u; ++c) sums[r][c] = Sum(0);
  }
  for (uint word = 0u; word < kWords; ++word) {
    Four columns[4];
    [[unroll]] for (uint c = 0u; c < 4u; ++c) columns[c] = fourOf(pool[kColumns + (x + c * kSide) * kStride + word]);
    [[unroll]] for (uint r = 0u; r < 4u; ++r) {
      const Four row = fourOf(pool[(y + r * kSide) * kStride + word]);
      [[unroll]] for (uint c = 0u; c < 4u; ++c) sums[r][c] += dotOf(row, columns[c]);
    }
  }
  barrier();

  // The pool now holds, for each row and then for each column, 16 pairs of keys.
  [[unroll]] for (uint i = 0u; i < 4u; ++i) {
    uvec2 row = uvec2(0u), column = uvec2(0u);
    [[unroll]] for (uint k = 0u; k < 4u; ++k) {
      take(row, keyOf(uint(sums[i][k]), x + k * kSide));
      take(column, keyOf(uint(sums[k][i]), y + k * kSide));
    }
    const uint row_at = ((y + i * kSide) * kSide + x) * 2u;
    const uint column_at = ((kTile + x + i * kSide) * kSide + y) * 2u;
    pool[row_at] = row.x;
    pool[row_at + 1u] = row.y;
    pool[column_at] = column.x;
    pool[column_at + 1u] = column.y;
  }
  barrier();

  const uint row = row_tile * kTile + t, column = column_tile * kTile + t - kTile;
  if (t < kTile) {
    if (row < count1) rowPartials[column_tile * count1 + row] = bestTwo(t * 2u * kSide);
  } else if (t < 2u * kTile && column < count2) {
    columnPartials[row_tile * count2 + column] = bestTwo(t * 2u * kSide);
  }
}
