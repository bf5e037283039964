#version 450
// What a composited background passes on to the pixels' accumulated opacity; the part of loss_grad that loss_strips lacks.
//
//   dAlpha = -(dImage . background) where 1 - alpha >= 0
//
// binding | name   | element | shape | access
//       0 | dImage | float   | P x 3 | read
//       1 | alpha  | float   | P     | read
//       2 | dAlpha | float   | P     | write
// Push: background red, green, blue, pixels (P). One invocation a pixel, no races.
#extension GL_GOOGLE_include_directive : require
#include "gs/render/kernels/interfaces.h"
#include "gpu/kernels/include/item_index.glsl"

layout(local_size_x = 256) in;
DECLARE_BUFFERS(ALPHA_GRADIENT)
DECLARE_PUSH(ALPHA_GRADIENT)

void main() {
  const uint p = itemIndex();
  if (p >= pixels) return;
  const vec3 g = vec3(dImage[3u * p], dImage[3u * p + 1u], dImage[3u * p + 2u]);
  dAlpha[p] = 1.0 - alpha[p] >= 0.0 ? -dot(g, vec3(red, green, blue)) : 0.0;
}
