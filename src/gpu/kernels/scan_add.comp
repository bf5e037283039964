// scan_add: adds to every item what came before its block. Second half of a scan of more than one block.
//
// data[i] += offsets[i / 1024], offsets being the exclusive prefix sum of the block totals.
//
// binding | name    | element | shape            | access
//       0 | data    | uint    | count            | read, write
//       1 | offsets | uint    | ceil(count/1024) | read
//
// push: count (items)
//
// One item an invocation, no sharing.
#version 450
#extension GL_GOOGLE_include_directive : require
#include "gpu/kernels/interfaces.h"
layout(local_size_x = 256) in;

DECLARE_BUFFERS(SCAN_ADD)
DECLARE_PUSH(SCAN_ADD)

#include "gpu/kernels/include/item_index.glsl"

void main() {
  const uint i = itemIndex();
  if (i < count) data[i] += offsets[i / 1024u];
}
