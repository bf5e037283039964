#version 450
// One step of Adam (Kingma & Ba 2015, algorithm 1) on one parameter group.
//
//   m = beta1 m + (1 - beta1) g, v = beta2 v + (1 - beta2) g^2
//   value -= rate (m / (1 - beta1^t)) / (sqrt(v) / sqrt(1 - beta2^t) + epsilon)
//
// binding | name     | element | shape | access
//       0 | value    | float   | count | read and write
//       1 | m        | float   | count | read and write
//       2 | v        | float   | count | read and write
//       3 | gradient | float   | count | read
// Push: count, rate, beta1, beta2, epsilon, 1 - beta1^t, sqrt(1 - beta2^t). One invocation a value, no races.
#extension GL_GOOGLE_include_directive : require
#include "gpu/kernels/include/item_index.glsl"

layout(local_size_x = 256) in;
layout(binding = 0) buffer Value { float value[]; };
layout(binding = 1) buffer FirstMoment { float m[]; };
layout(binding = 2) buffer SecondMoment { float v[]; };
layout(binding = 3) readonly buffer Gradient { float gradient[]; };
layout(push_constant) uniform Push {
  uint count;
  float rate;
  float beta1;
  float beta2;
  float epsilon;
  float correction1;
  float rootCorrection2;
};

void main() {
  const uint i = itemIndex();
  if (i >= count) return;
  const float g = gradient[i];
  const float first = beta1 * m[i] + (1.0 - beta1) * g;
  const float second = beta2 * v[i] + (1.0 - beta2) * g * g;
  m[i] = first;
  v[i] = second;
  value[i] -= rate * (first / correction1) / (sqrt(second) / rootCorrection2 + epsilon);
}
