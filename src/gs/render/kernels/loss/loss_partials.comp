#version 450
// Sums, over 256 items a group, of |rendered - target|, (clamp(rendered) - target)^2 and SSIM; the host adds the groups.
//
// binding | name     | element | shape                 | access
//       0 | rendered | float   | count                 | read
//       1 | target   | float   | count                 | read
//       2 | map      | float   | count                 | read, SSIM
//       3 | partials | float   | ceil(count / 256) x 3 | write
// Push: count. The halving steps in shared memory are fenced by barriers.
#extension GL_GOOGLE_include_directive : require
#include "gs/render/kernels/interfaces.h"
#include "gpu/kernels/include/item_index.glsl"

layout(local_size_x = 256) in;
DECLARE_BUFFERS(LOSS_PARTIALS)
DECLARE_PUSH(LOSS_PARTIALS)

shared vec3 sums[256];

void main() {
  const uint i = itemIndex();
  const uint local = gl_LocalInvocationID.x;
  vec3 value = vec3(0.0);
  if (i < count) {
    const float squared = clamp(rendered[i], 0.0, 1.0) - target[i];
    value = vec3(abs(rendered[i] - target[i]), squared * squared, map[i]);
  }
  sums[local] = value;
  for (uint half_ = 128u; half_ > 0u; half_ /= 2u) {
    barrier();
    if (local < half_) sums[local] += sums[local + half_];
  }
  if (local != 0u || i >= count) return;
  for (uint k = 0u; k < 3u; ++k) partials[3u * (i / 256u) + k] = sums[0][k];
}
