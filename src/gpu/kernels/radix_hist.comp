// radix_hist: how often each digit occurs in each block of 1024 keys. First step of a pass of the radix sort.
//
// histogram[d * blocks + g] = number of keys of block g with (key >> shift) & 15 = d. Digit-major, so that its exclusive
// prefix sum is the place of the first key of digit d from block g.
//
// binding | name      | element | shape       | access
//       0 | keys      | uint    | count       | read
//       1 | histogram | uint    | 16 x blocks | write
//
// push: count (keys), shift (bits), blocks (= ceil(count/1024))
//
// One group a block; the group counts with shared-memory atomics, in any order. Groups past the last block do nothing.
#version 450
#extension GL_GOOGLE_include_directive : require
#include "gpu/kernels/interfaces.h"
layout(local_size_x = 256) in;

DECLARE_BUFFERS(RADIX_HIST)
DECLARE_PUSH(RADIX_HIST)

#include "gpu/kernels/include/item_index.glsl"

shared uint counters[16];

void main() {
  const uint block = groupIndex();
  if (block >= blocks) return;
  const uint t = gl_LocalInvocationID.x;
  if (t < 16u) counters[t] = 0u;
  barrier();
  for (uint i = 0u; i < 4u; ++i) {
    const uint item = block * 1024u + i * 256u + t;
    if (item < count) atomicAdd(counters[(keys[item] >> shift) & 15u], 1u);
  }
  barrier();
  if (t < 16u) histogram[t * blocks + block] = counters[t];
}
