#version 450
// For the benches: how many multiply-adds the device makes in a second when no memory access delays it. Eight independent
// chains an invocation hide the latency of each other and stay in registers.
//
// binding | name | element | shape | access
//       0 | sums | float   | items | write
// Push: items, rounds of eight multiply-adds, a multiple of 64. No races.
#extension GL_GOOGLE_include_directive : require
#extension GL_EXT_control_flow_attributes : require
#include "gpu/kernels/include/item_index.glsl"
#include "interfaces.h"

layout(local_size_x = 256) in;
DECLARE_BUFFERS(MULTIPLY_ADD_PEAK)
DECLARE_PUSH(MULTIPLY_ADD_PEAK)

void main() {
  const uint i = itemIndex();
  if (i >= count) return;
  vec4 a = vec4(i) * 1e-6, b = a + 0.1;
  const vec4 factor = vec4(0.999), offset = vec4(1e-3);
  uint round_ = 0u;
  do {
    [[unroll]] for (int k = 0; k < 64; ++k) {
      a = a * factor + offset;
      b = b * factor + offset;
    }
    round_ += 64u;
  } while (round_ < rounds);
  sums[i] = dot(a + b, vec4(1.0));
}
