#version 450
// Packs a rendered image into the bytes that a window shows: colours clamped to 0..1 and rounded, opaque.
//
// binding | name   | element | shape | access
//       0 | rgb    | float   | N x 3 | read
//       1 | packed | 4 bytes | N     | write, red in the lowest bits
// Push: count (pixels). One invocation a pixel, no races.
#extension GL_GOOGLE_include_directive : require
#include "gs/render/kernels/interfaces.h"
#include "gpu/kernels/include/item_index.glsl"

layout(local_size_x = 256) in;
DECLARE_BUFFERS(RGB_TO_RGBA8)
DECLARE_PUSH(RGB_TO_RGBA8)

void main() {
  const uint i = itemIndex();
  if (i >= count) return;
  packedBytes[i] = packUnorm4x8(vec4(rgb[3u * i], rgb[3u * i + 1u], rgb[3u * i + 2u], 1.0));
}
