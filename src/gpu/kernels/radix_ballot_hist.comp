#version 450
// How often each of the 256 digits occurs in each block of 2048 keys. First step of a pass of the radix sort by ballots.
//
//   histogram[d * blocks + g] = number of keys of block g with (key >> shift) & 255 = d
//
// binding | name      | element | shape        | access
//       0 | keys      | uint    | count        | read
//       1 | histogram | uint    | 256 x blocks | write, digit-major as radix_hist's
// Push: count (keys), shift (bits), blocks (ceil(count / 2048)). One group a block, counting with shared-memory atomics;
// groups past the last block do nothing.
#extension GL_GOOGLE_include_directive : require
#include "gpu/kernels/interfaces.h"
#include "gpu/kernels/include/item_index.glsl"

layout(local_size_x = 256) in;
DECLARE_BUFFERS(RADIX_BALLOT_HIST)
DECLARE_PUSH(RADIX_BALLOT_HIST)

shared uint counters[256];

void main() {
  const uint block = groupIndex();
  if (block >= blocks) return;
  const uint t = gl_LocalInvocationID.x;
  counters[t] = 0u;
  barrier();
  for (uint i = 0u; i < 8u; ++i) {
    const uint item = block * 2048u + i * 256u + t;
    if (item < count) atomicAdd(counters[(keys[item] >> shift) & 255u], 1u);
  }
  barrier();
  histogram[t * blocks + block] = counters[t];
}
