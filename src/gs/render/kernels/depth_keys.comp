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
#include "gpu/kernels/include/item_index.glsl"

layout(local_size_x = 256) in;
layout(binding = 0) readonly buffer Depth { float depth[]; };
layout(binding = 1) readonly buffer Visible { int visible[]; };
layout(binding = 2) writeonly buffer Key { uint key[]; };
layout(binding = 3) writeonly buffer Value { uint value[]; };
layout(push_constant) uniform Push { uint count; };

void main() {
  const uint i = itemIndex();
  if (i >= count) return;
  key[i] = visible[i] != 0 ? floatBitsToUint(depth[i]) : 0xFFFFFFFFu;
  value[i] = i;
}
