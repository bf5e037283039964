#version 450
// Carries the gradients of the screen mean, conic and colour of every splat back to its position, scale, rotation and SH
// coefficients. The exact derivative of preprocess_forward:
//
//   conic = K = S2^-1        dS2 = -K dK K
//   S2 = V V^T + 0.3 I       dV = 2 dS2 V,  V = T M, T = J W, M = R(q) diag(s)
//   mean = f t.xy / t.z + c; J at the clamped point: where the clamp is active, only z moves it
//   q -> q / |q| and direction = (x - centre) / |x - centre| carry their normalisation
// Where a colour channel was clamped at 0 its gradient is 0. A culled splat gets zeros. SH_REST=0 leaves the last buffer
// out, for adam_sh, which makes these gradients itself.
//
// binding | name      | element | shape  | access
//       0 | position  | float   | N x 3  | read
//       1 | scale     | float   | N x 3  | read, activated
//       2 | rotation  | float   | N x 4  | read
//       3 | shDc      | float   | N x 3  | read
//       4 | shRest    | float   | N x 45 | read
//       5 | visible   | int     | N      | read
//       6 | dMean     | float   | N x 2  | read, per pixel
//       7 | dConic    | float   | N x 3  | read; of (a, b, c) in q = a dx^2 + 2 b dx dy + c dy^2
//       8 | dColour   | float   | N x 3  | read
//       9 | dPosition | float   | N x 3  | write
//      10 | dScale    | float   | N x 3  | write, of the activated scale
//      11 | dRotation | float   | N x 4  | write
//      12 | dShDc     | float   | N x 3  | write
//      13 | dShRest   | float   | N x 45 | write, nothing when the active degree is 0
// Push: the camera block. One invocation a splat, no races.
#extension GL_GOOGLE_include_directive : require
#include "gs/render/kernels/interfaces.h"
#include "gs/render/kernels/include/shared_constants.h"
#include "gpu/kernels/include/item_index.glsl"
#include "gs/render/kernels/include/camera_block.glsl"
#include "gs/render/kernels/include/projection.glsl"
#include "gs/render/kernels/include/spherical_harmonics.glsl"

layout(local_size_x = 256) in;
#if SH_REST
DECLARE_BUFFERS(PREPROCESS_BACKWARD)
#else
DECLARE_BUFFERS(PREPROCESS_BACKWARD_NO_SH)
#endif

void writeZeros(uint i) {
  for (uint k = 0u; k < 3u; ++k) {
    dPosition[3u * i + k] = 0.0;
    dScale[3u * i + k] = 0.0;
    dShDc[3u * i + k] = 0.0;
  }
  for (uint k = 0u; k < 4u; ++k) dRotation[4u * i + k] = 0.0;
#if SH_REST
  if (cam.size.w > 0u) {
    for (uint k = 0u; k < SH_REST_FLOATS; ++k) dShRest[SH_REST_FLOATS * i + k] = 0.0;
  }
#endif
}

// Writes the SH gradients and returns the colour's gradient with respect to the position.
vec3 colourBackward(uint i, vec3 p) {
  const vec3 offset = p - cam.centre.xyz;
  const float inverseLength = inversesqrt(max(dot(offset, offset), DIVISION_GUARD));
  const vec3 direction = offset * inverseLength;
  const uint rest = shRestCount(cam.size.w);
  const uint base = i * SH_REST_FLOATS;

  // One walk over the coefficients: what each channel would pass on to the direction is summed before it is known whether
  // the channel passes anything.
  vec3 c = vec3(0.5) + SH_C0 * vec3(shDc[3u * i], shDc[3u * i + 1u], shDc[3u * i + 2u]);
  mat3 slope = mat3(0.0);  // slope[channel]
  float basis[15];
  vec3 gradient[15];
  shBasis(direction, basis);
  shBasisGradient(direction, gradient);
  if (rest > 0u) {
    for (uint k = 0u; k < 15u; ++k) {
      if (k < rest) {
        const uint at = base + 3u * k;
        const vec3 own = vec3(shRest[at], shRest[at + 1u], shRest[at + 2u]);
        c += basis[k] * own;
        slope += outerProduct(gradient[k], own);
      }
    }
  }
  const vec3 d = vec3(dColour[3u * i], dColour[3u * i + 1u], dColour[3u * i + 2u]) * vec3(greaterThan(c, vec3(0.0)));
  for (uint k = 0u; k < 3u; ++k) dShDc[3u * i + k] = SH_C0 * d[k];
  if (rest == 0u) return vec3(0.0);

#if SH_REST
  for (uint k = 0u; k < 15u; ++k) {
    const vec3 g = k < rest ? basis[k] * d : vec3(0.0);
    for (uint j = 0u; j < 3u; ++j) dShRest[base + 3u * k + j] = g[j];
  }
#endif
  const vec3 dDirection = slope * d;
  return (dDirection - direction * dot(direction, dDirection)) * inverseLength;
}

// dR is the gradient of the rotation matrix, dR[column][row]; q = (w, x, y, z) of unit length.
vec4 quaternionBackward(mat3 dR, vec4 q) {
  const float w = q.x, x = q.y, y = q.z, z = q.w;
  const float d01 = dR[1][0], d10 = dR[0][1], d02 = dR[2][0], d20 = dR[0][2], d12 = dR[2][1], d21 = dR[1][2];
  return 2.0 * vec4(x * (d21 - d12) + y * (d02 - d20) + z * (d10 - d01),
                    y * (d01 + d10) + z * (d02 + d20) + w * (d21 - d12) - 2.0 * x * (dR[1][1] + dR[2][2]),
                    x * (d01 + d10) + z * (d12 + d21) + w * (d02 - d20) - 2.0 * y * (dR[0][0] + dR[2][2]),
                    x * (d02 + d20) + y * (d12 + d21) + w * (d10 - d01) - 2.0 * z * (dR[0][0] + dR[1][1]));
}

void main() {
  const uint i = itemIndex();
  if (i >= cam.size.x) return;
  if (visible[i] == 0) {
    writeZeros(i);
    return;
  }
  const vec3 p = vec3(position[3u * i], position[3u * i + 1u], position[3u * i + 2u]);
  const vec3 t = toCamera(p);
  const vec3 s = vec3(scale[3u * i], scale[3u * i + 1u], scale[3u * i + 2u]);
  const vec4 q = vec4(rotation[4u * i], rotation[4u * i + 1u], rotation[4u * i + 2u], rotation[4u * i + 3u]);
  const float inverseNorm = inversesqrt(dot(q, q));
  const vec4 unit = q * inverseNorm;
  const Projection proj = projectSplat(t, s, unit);
  const vec4 cov = screenCovariance(proj);

  // Conic to 2-D covariance: dS = -K G K with G = [[da, db / 2], [db / 2, dc]].
  const vec3 k = vec3(cov.z, -cov.y, cov.x) / cov.w;
  const vec3 g = vec3(dConic[3u * i], 0.5 * dConic[3u * i + 1u], dConic[3u * i + 2u]);
  const vec2 gk0 = vec2(g.x * k.x + g.y * k.y, g.x * k.y + g.y * k.z);
  const vec2 gk1 = vec2(g.y * k.x + g.z * k.y, g.y * k.y + g.z * k.z);
  const float dSa = -(k.x * gk0.x + k.y * gk1.x);
  const float dSb = -(k.x * gk0.y + k.y * gk1.y);
  const float dSc = -(k.y * gk0.y + k.z * gk1.y);

  const vec3 dV0 = 2.0 * (dSa * proj.v0 + dSb * proj.v1);
  const vec3 dV1 = 2.0 * (dSb * proj.v0 + dSc * proj.v1);
  // V = T R diag(s)
  const vec3 dT0 = proj.axes * (dV0 * s);
  const vec3 dT1 = proj.axes * (dV1 * s);
  const vec3 dS = dV0 * (proj.t0 * proj.axes) + dV1 * (proj.t1 * proj.axes);
  mat3 dR;
  for (int column = 0; column < 3; ++column) {
    dR[column] = s[column] * (proj.t0 * dV0[column] + proj.t1 * dV1[column]);
  }
  const vec4 dUnit = quaternionBackward(dR, unit);
  const vec4 dQ = (dUnit - unit * dot(unit, dUnit)) * inverseNorm;

  // T = J W with J00 = f / z and J02 = -f slope / z, and the mean.
  const vec2 f = cam.intrinsics.xy;
  const float inverseZ = 1.0 / t.z;
  const vec2 dMeanI = vec2(dMean[2u * i], dMean[2u * i + 1u]);
  const vec2 dJ0 = vec2(dot(dT0, cam.row0.xyz), dot(dT1, cam.row1.xyz));
  const vec2 dJ2 = vec2(dot(dT0, cam.row2.xyz), dot(dT1, cam.row2.xyz));
  const vec2 dSlope = -dJ2 * f * inverseZ * proj.free;
  const vec2 slope = t.xy * inverseZ;  // where the clamp is not active it is proj.slope
  vec3 dt;
  dt.xy = (dMeanI * f + dSlope) * inverseZ;
  dt.z = (dot(f * inverseZ, dJ2 * proj.slope - dJ0) - dot(dMeanI * f + dSlope, slope)) * inverseZ;

  const vec3 dP = dt.x * cam.row0.xyz + dt.y * cam.row1.xyz + dt.z * cam.row2.xyz + colourBackward(i, p);
  for (uint j = 0u; j < 3u; ++j) {
    dPosition[3u * i + j] = dP[j];
    dScale[3u * i + j] = dS[j];
  }
  for (uint j = 0u; j < 4u; ++j) dRotation[4u * i + j] = dQ[j];
}
