#version 450
// Flags every splat with a parameter that is not a finite number, for the next densification pass to replace.
//
// binding | name     | element | shape  | access
//       0 | position | float   | N x 3  | read
//       1 | scale    | float   | N x 3  | read, log
//       2 | rotation | float   | N x 4  | read
//       3 | opacity  | float   | N      | read, logit
//       4 | shDc     | float   | N x 3  | read
//       5 | shRest   | float   | N x 45 | read
//       6 | flag     | uint    | N      | write, 1 = diverged
// Push: count. One invocation a splat, no races.
#extension GL_GOOGLE_include_directive : require
#include "gs/train/kernels/interfaces.h"
#include "gpu/kernels/include/item_index.glsl"

layout(local_size_x = 256) in;
DECLARE_BUFFERS(FLAG_DIVERGED)
DECLARE_PUSH(FLAG_DIVERGED)

// On the bits: a compiler may assume that arithmetic meets no NaN.
bool bad(uint bits) { return (bits & 0x7F800000u) == 0x7F800000u; }

void main() {
  const uint i = itemIndex();
  if (i >= count) return;
  bool diverged = bad(opacity[i]);
  for (uint k = 0u; k < 3u; ++k) {
    diverged = diverged || bad(position[3u * i + k]) || bad(scale[3u * i + k]) || bad(shDc[3u * i + k]);
  }
  for (uint k = 0u; k < 4u; ++k) diverged = diverged || bad(rotation[4u * i + k]);
  for (uint k = 0u; k < 45u; ++k) diverged = diverged || bad(shRest[45u * i + k]);
  flag[i] = diverged ? 1u : 0u;
}
