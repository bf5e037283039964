#version 450
// First kernel of a forward pass: turns the stored log scales and opacity logits of every splat into the values that the
// projection works with.
//
//   scale = exp(s), opacity = 1 / (1 + exp(-o))
//
// binding | name      | element | shape | access
//       0 | logScale  | float   | N x 3 | read
//       1 | logit     | float   | N     | read
//       2 | scale     | float   | N x 3 | write
//       3 | opacity   | float   | N     | write
// Push: count (splats); with SCALED also a factor for all scales, for looking at a scene with smaller splats.
// One invocation a splat, no races.
#extension GL_GOOGLE_include_directive : require
#include "gpu/kernels/include/item_index.glsl"

layout(local_size_x = 256) in;
layout(binding = 0) readonly buffer LogScale { float logScale[]; };
layout(binding = 1) readonly buffer Logit { float logit[]; };
layout(binding = 2) writeonly buffer Scale { float scale[]; };
layout(binding = 3) writeonly buffer Opacity { float opacity[]; };
#ifdef SCALED
layout(push_constant) uniform Push { uint count; float factor; };
#else
layout(push_constant) uniform Push { uint count; };
const float factor = 1.0;
#endif

void main() {
  const uint i = itemIndex();
  if (i >= count) return;
  for (uint k = 0u; k < 3u; ++k) scale[3u * i + k] = factor * exp(logScale[3u * i + k]);
  opacity[i] = 1.0 / (1.0 + exp(-logit[i]));
}
