#version 450
// Widens a photograph from bytes to floats in 0..1.
//
// binding | name   | element | shape     | access
//       0 | packed | 4 bytes | count / 4 | read, byte 0 in the lowest bits
//       1 | value  | float   | count     | write
// Push: count (bytes). One invocation a byte, no races.
#extension GL_GOOGLE_include_directive : require
#include "gs/render/kernels/interfaces.h"
#include "gpu/kernels/include/item_index.glsl"

layout(local_size_x = 256) in;
DECLARE_BUFFERS(U8_TO_F32)
DECLARE_PUSH(U8_TO_F32)

void main() {
  const uint i = itemIndex();
  if (i >= count) return;
  value[i] = float((packedBytes[i / 4u] >> (8u * (i & 3u))) & 255u) * 0.003921568859368563;
}
