#version 450
// Widens a photograph from bytes to floats in 0..1.
//
// binding | name   | element      | shape     | access
//       0 | packed | 4 bytes      | count / 4 | read, byte 0 in the lowest bits
//       1 | value  | float        | count     | write
// Push: count (bytes). One invocation a byte, no races.
#extension GL_GOOGLE_include_directive : require
#include "gpu/kernels/include/item_index.glsl"

layout(local_size_x = 256) in;
layout(binding = 0) readonly buffer Packed { uint packedBytes[]; };
layout(binding = 1) writeonly buffer Value { float value[]; };
layout(push_constant) uniform Push { uint count; };

void main() {
  const uint i = itemIndex();
  if (i >= count) return;
  value[i] = float((packedBytes[i / 4u] >> (8u * (i & 3u))) & 255u) * 0.003921568859368563;
}
