#version 450
// Adds this view to the densification statistics of the splats that it saw: the length of the screen mean's gradient in
// normalised device units, and one view (Kerbl et al. 2023).
//
// binding | name    | element | shape | access
//       0 | dMean   | float   | N x 2 | read, per pixel
//       1 | visible | int     | N     | read
//       2 | sum     | float   | N     | read and write
//       3 | views   | float   | N     | read and write
// Push: count, whether to start over (the old values are then not read), width / 2, height / 2. No races.
#extension GL_GOOGLE_include_directive : require
#include "gs/train/kernels/interfaces.h"
#include "gpu/kernels/include/item_index.glsl"

layout(local_size_x = 256) in;
DECLARE_BUFFERS(GRAD_STATS)
DECLARE_PUSH(GRAD_STATS)

void main() {
  const uint i = itemIndex();
  if (i >= count) return;
  const bool seen = visible[i] != 0;
  if (startOver != 0u) {
    sum[i] = 0.0;
    views[i] = 0.0;
  }
  if (!seen) return;
  sum[i] += length(vec2(dMean[2u * i] * halfWidth, dMean[2u * i + 1u] * halfHeight));
  views[i] += 1.0;
}
