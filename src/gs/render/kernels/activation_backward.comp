#version 450
// Last kernel of a backward pass: carries the gradients of the activated scales and opacities to the stored logs and
// logits, and adds those of the two regularisers of the MCMC technique (zero for Vanilla):
//
//   d log scale = (dScale + scaleWeight) scale
//   d logit = (dOpacity + opacityWeight) opacity (1 - opacity)
// The weights are each regulariser's weight over the number of values that its mean is taken over.
//
// binding | name      | element | shape | access
//       0 | scale     | float   | N x 3 | read, activated
//       1 | opacity   | float   | N     | read, activated
//       2 | dScale    | float   | N x 3 | read
//       3 | dOpacity  | float   | N     | read
//       4 | dLogScale | float   | N x 3 | write
//       5 | dLogit    | float   | N     | write
// Push: count, opacityWeight, scaleWeight. One invocation a splat. dScale and dLogScale may be one buffer: an invocation
// reads only the elements that it then writes.
#extension GL_GOOGLE_include_directive : require
#include "gs/render/kernels/interfaces.h"
#include "gpu/kernels/include/item_index.glsl"

layout(local_size_x = 256) in;
DECLARE_BUFFERS(ACTIVATION_BACKWARD)
DECLARE_PUSH(ACTIVATION_BACKWARD)

void main() {
  const uint i = itemIndex();
  if (i >= count) return;
  for (uint k = 3u * i; k < 3u * i + 3u; ++k) dLogScale[k] = (dScale[k] + scaleWeight) * scale[k];
  const float o = opacity[i];
  dLogit[i] = (dOpacity[i] + opacityWeight) * o * (1.0 - o);
}
