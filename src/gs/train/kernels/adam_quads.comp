#version 450
// adam with four values an invocation, read and written together: half the cost on software drivers, fewer and wider
// accesses elsewhere. Buffer sizes are multiples of four values; padding beyond the count changes too and is never read.
//
// One step of Adam (Kingma & Ba 2015, algorithm 1) on one parameter group.
//
//   m = beta1 m + (1 - beta1) g, v = beta2 v + (1 - beta2) g^2
//   value -= rate (m / (1 - beta1^t)) / (sqrt(v) / sqrt(1 - beta2^t) + epsilon)
//
// binding | name         | element | shape           | access
//       0 | value        | vec4    | ceil(count / 4) | read and write
//       1 | firstMoment  | vec4    | ceil(count / 4) | read and write
//       2 | secondMoment | vec4    | ceil(count / 4) | read and write
//       3 | gradient     | vec4    | ceil(count / 4) | read
// Push: count (values), rate, beta1, beta2, epsilon, 1 - beta1^t, sqrt(1 - beta2^t). No races.
#extension GL_GOOGLE_include_directive : require
#include "gs/train/kernels/interfaces.h"
#include "gpu/kernels/include/item_index.glsl"

layout(local_size_x = 256) in;
#define ADAM_ELEMENT vec4
DECLARE_BUFFERS(ADAM)
DECLARE_PUSH(ADAM)

void main() {
  const uint i = itemIndex();
  if (4u * i >= count) return;
  const vec4 g = gradient[i];
  const vec4 first = beta1 * firstMoment[i] + (1.0 - beta1) * g;
  const vec4 second = beta2 * secondMoment[i] + (1.0 - beta2) * g * g;
  firstMoment[i] = first;
  secondMoment[i] = second;
  value[i] -= rate * (first / correction1) / (sqrt(second) / rootCorrection2 + epsilon);
}
