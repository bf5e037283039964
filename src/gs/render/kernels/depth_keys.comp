#version 450
// Sort keys that order the visible splats front to back: non-negative floats order like their bit patterns, and culled
// splats go last.
//
// binding | name    | element | shape | access
//       0 | depth   | float   | N     | read
//       1 | visible | int     | N     | read
//       2 | key     | uint    | N     | write
//       3 | value   | uint    | N     | write, the splat's index
// Push: count. One invocation a splat, no races.
#extension GL_GOOGLE_include_directive : require
#include "gs/render/kernels/interfaces.h"
#include "gpu/kernels/include/item_index.glsl"

layout(local_size_x = 256) in;
DECLARE_BUFFERS(DEPTH_KEYS)
DECLARE_PUSH(DEPTH_KEYS)

void main() {
  const uint i = itemIndex();
  if (i >= count) return;
  key[i] = visible[i] != 0 ? floatBitsToUint(depth[i]) : 0xFFFFFFFFu;
  value[i] = i;
}
