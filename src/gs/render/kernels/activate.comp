#version 450
// First kernel of a forward pass: turns the stored log scales and opacity logits of every splat into the values that the
// projection works with.
//
//   scale = exp(s), opacity = 1 / (1 + exp(-o))
//
// binding | name     | element | shape | access
//       0 | logScale | float   | N x 3 | read
//       1 | logit    | float   | N     | read
//       2 | scale    | float   | N x 3 | write
//       3 | opacity  | float   | N     | write
// Push: count (splats); with SCALED also a factor for all scales, for looking at a scene with smaller splats.
// One invocation a splat, no races.
#extension GL_GOOGLE_include_directive : require
#include "gs/render/kernels/interfaces.h"
#include "gpu/kernels/include/item_index.glsl"

layout(local_size_x = 256) in;
DECLARE_BUFFERS(ACTIVATE)
#ifdef SCALED
DECLARE_PUSH(ACTIVATE_SCALED)
#else
DECLARE_PUSH(ACTIVATE)
const float factor = 1.0;
#endif

void main() {
  const uint i = itemIndex();
  if (i >= count) return;
  for (uint k = 0u; k < 3u; ++k) scale[3u * i + k] = factor * exp(logScale[3u * i + k]);
  opacity[i] = 1.0 / (1.0 + exp(-logit[i]));
}
