// scan_block: exclusive prefix sum within each block of 1024 items, and each block's total. First half of a scan.
//
// data[i] becomes the sum of the block's items before i; totals[g] the sum of block g. Sums wrap modulo 2^32.
//
// binding | name   | element | shape            | access
//       0 | data   | uint    | count            | read, write
//       1 | totals | uint    | ceil(count/1024) | write
//
// push: count (items)
//
// One group a block, four consecutive items an invocation. Groups past the last block do nothing. Every invocation reads
// and writes its own items only; the group meets in the shared-memory scan.
#version 450
#extension GL_GOOGLE_include_directive : require
#include "gpu/kernels/interfaces.h"
layout(local_size_x = 256) in;

DECLARE_BUFFERS(SCAN_BLOCK)
DECLARE_PUSH(SCAN_BLOCK)

#include "gpu/kernels/include/group_scan.glsl"
#include "gpu/kernels/include/item_index.glsl"

void main() {
  const uint block = groupIndex();
  if (block >= count / 1024u + uint(count % 1024u != 0u)) return;
  const uint t = gl_LocalInvocationID.x;
  const uint first = block * 1024u + t * 4u;
  uint items[4];
  uint sum = 0u;
  for (uint i = 0u; i < 4u; ++i) {
    items[i] = first + i < count ? data[first + i] : 0u;
    sum += items[i];
  }
  const uint inclusive = groupInclusiveSum(sum);
  uint running = inclusive - sum;
  for (uint i = 0u; i < 4u; ++i) {
    if (first + i < count) data[first + i] = running;
    running += items[i];
  }
  if (t == 0u) totals[block] = group_sums[255];
}
