#version 450
// Puts the background colour behind the splats: colour += max(1 - accumulated opacity, 0) background.
//
// binding | name  | element | shape     | access
//       0 | image | float   | H x W x 3 | read and write
//       1 | alpha | float   | H x W     | read
// Push: background red, green, blue, pixels. One invocation a pixel, no races.
#extension GL_GOOGLE_include_directive : require
#include "gs/render/kernels/interfaces.h"
#include "gpu/kernels/include/item_index.glsl"

layout(local_size_x = 256) in;
DECLARE_BUFFERS(COMPOSITE_BACKGROUND)
DECLARE_PUSH(COMPOSITE_BACKGROUND)

void main() {
  const uint p = itemIndex();
  if (p >= pixels) return;
  const float left = max(1.0 - alpha[p], 0.0);
  image[3u * p] += left * red;
  image[3u * p + 1u] += left * green;
  image[3u * p + 2u] += left * blue;
}
