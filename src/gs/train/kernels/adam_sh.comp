#version 450
// One step of Adam (see adam_quads) on the SH coefficients above degree 0 that the active DEGREE has; the others have
// neither gradients nor moments. Their gradients are never in memory: that of coefficient k of a channel is
//
//   dL/dcoefficient = basis_k(direction) d, d = dL/dShDc / SH_C0, direction = (position - centre) / |position - centre|
// with d the gradient of the splat's colour in the channel, 0 where it was clamped.
//
// A group makes the bases of 64 splats in shared memory, then walks their coefficients, neighbours side by side.
//
// binding | name         | element | shape  | access
//       0 | value        | float   | N x 45 | read and write
//       1 | firstMoment  | float   | N x 45 | read and write
//       2 | secondMoment | float   | N x 45 | read and write
//       3 | position     | float   | N x 3  | read
//       4 | dShDc        | float   | N x 3  | read
// Push: Adam's as in adam_quads, with the splats as count; the camera's centre. 256 invocations for 64 splats; no
// races.
#extension GL_GOOGLE_include_directive : require
#include "gs/train/kernels/interfaces.h"
#include "gs/render/kernels/include/shared_constants.h"
#include "gs/render/kernels/include/spherical_harmonics.glsl"
#include "gpu/kernels/include/item_index.glsl"

layout(local_size_x = 256) in;
DECLARE_BUFFERS(ADAM_SH)
DECLARE_PUSH(ADAM_SH)

const uint kSplats = 64u;
const uint kActive = uint((DEGREE + 1) * (DEGREE + 1) - 1);
shared float sBasis[kSplats][15];
shared float sColour[kSplats][3];

void main() {
  const uint t = gl_LocalInvocationID.x;
  const uint base = groupIndex() * kSplats;
  if (t < kSplats && base + t < count) {
    const uint i = base + t;
    const vec3 offset = vec3(position[3u * i], position[3u * i + 1u], position[3u * i + 2u]) - vec3(centreX, centreY, centreZ);
    const vec3 direction = offset * inversesqrt(max(dot(offset, offset), DIVISION_GUARD));
    float basis[15];
    shBasis(direction, basis);
    for (uint k = 0u; k < kActive; ++k) sBasis[t][k] = basis[k];
    for (uint c = 0u; c < 3u; ++c) sColour[t][c] = dShDc[3u * i + c] / SH_C0;
  }
  barrier();
  for (uint f = t; f < kSplats * 3u * kActive; f += 256u) {
    const uint splat = f / (3u * kActive), r = f % (3u * kActive);
    if (base + splat >= count) break;
    const uint i = (base + splat) * SH_REST_FLOATS + r;
    const float g = sBasis[splat][r / 3u] * sColour[splat][r % 3u];
    const float m = beta1 * firstMoment[i] + (1.0 - beta1) * g;
    const float v = beta2 * secondMoment[i] + (1.0 - beta2) * g * g;
    firstMoment[i] = m;
    secondMoment[i] = v;
    value[i] -= rate * (m / correction1) / (sqrt(v) / rootCorrection2 + epsilon);
  }
}
