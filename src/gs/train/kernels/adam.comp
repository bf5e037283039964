#version 450
// One step of Adam (Kingma & Ba 2015, algorithm 1) on one parameter group.
//
//   m = beta1 m + (1 - beta1) g, v = beta2 v + (1 - beta2) g^2
//   value -= rate (m / (1 - beta1^t)) / (sqrt(v) / sqrt(1 - beta2^t) + epsilon)
//
// binding | name         | element | shape | access
//       0 | value        | float   | count | read and write
//       1 | firstMoment  | float   | count | read and write
//       2 | secondMoment | float   | count | read and write
//       3 | gradient     | float   | count | read
// Push: count, rate, beta1, beta2, epsilon, 1 - beta1^t, sqrt(1 - beta2^t). One invocation a value, no races.
#extension GL_GOOGLE_include_directive : require
#include "gs/train/kernels/interfaces.h"
#include "gpu/kernels/include/item_index.glsl"

layout(local_size_x = 256) in;
#define ADAM_ELEMENT float
DECLARE_BUFFERS(ADAM)
DECLARE_PUSH(ADAM)

void main() {
  const uint i = itemIndex();
  if (i >= count) return;
  const float g = gradient[i];
  const float first = beta1 * firstMoment[i] + (1.0 - beta1) * g;
  const float second = beta2 * secondMoment[i] + (1.0 - beta2) * g * g;
  firstMoment[i] = first;
  secondMoment[i] = second;
  value[i] -= rate * (first / correction1) / (sqrt(second) / rootCorrection2 + epsilon);
}
