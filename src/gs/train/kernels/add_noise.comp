#version 450
// The exploration noise of the MCMC technique: nearly transparent splats move at random within their own shape, opaque
// ones stay (Kheradmand et al. 2024, equation 9).
//
//   mean += scale Sigma xi sigmoid(100 ((1 - opacity) - 0.995)), xi standard normal
//
// binding | name     | element | shape | access
//       0 | position | float   | N x 3 | read and write
//       1 | scale    | float   | N x 3 | read, activated
//       2 | rotation | float   | N x 4 | read
//       3 | opacity  | float   | N     | read, activated
// Push: count, three words of seed, scale. Counter-based random numbers: a splat's noise depends on the seed and its
// index only. One invocation a splat, no races.
#extension GL_GOOGLE_include_directive : require
#include "gs/train/kernels/interfaces.h"
#include "gs/render/kernels/include/shared_constants.h"
#include "gpu/kernels/include/item_index.glsl"

layout(local_size_x = 256) in;
DECLARE_BUFFERS(ADD_NOISE)
DECLARE_PUSH(ADD_NOISE)

// PCG4D (Jarzynski & Olano 2020, "Hash functions for GPU rendering").
uvec4 hash4(uvec4 v) {
  v = v * 1664525u + 1013904223u;
  v.x += v.y * v.w;
  v.y += v.z * v.x;
  v.z += v.x * v.y;
  v.w += v.y * v.z;
  v ^= v >> 16u;
  v.x += v.y * v.w;
  v.y += v.z * v.x;
  v.z += v.x * v.y;
  v.w += v.y * v.z;
  return v;
}

// Two standard normals of two words (Box-Muller); the first uniform is kept off zero.
vec2 normals(uvec2 bits) {
  const vec2 u = (vec2(bits >> 8u) + vec2(0.5)) / 16777216.0;
  const float angle = 6.283185307179586 * u.y;
  return sqrt(-2.0 * log(u.x)) * vec2(cos(angle), sin(angle));
}

void main() {
  const uint i = itemIndex();
  if (i >= count) return;
  const vec4 raw = vec4(rotation[4u * i], rotation[4u * i + 1u], rotation[4u * i + 2u], rotation[4u * i + 3u]);
  const vec4 q = raw * inversesqrt(max(dot(raw, raw), DIVISION_GUARD));
  const vec3 s = vec3(scale[3u * i], scale[3u * i + 1u], scale[3u * i + 2u]);

  const uvec4 bits = hash4(uvec4(i, seed0, seed1, seed2));
  const vec2 a = normals(bits.xy), b = normals(bits.zw);
  const vec3 xi = vec3(a, b.x);
  const float gate = 1.0 / (1.0 + exp(-100.0 * ((1.0 - opacity[i]) - 0.995)));

  // Sigma xi = R S S R^T xi, by quaternion rotations.
  const vec3 v = vec3(q.y, q.z, q.w);
  const vec3 u0 = 2.0 * cross(-v, xi);
  const vec3 local = (xi + q.x * u0 + cross(-v, u0)) * s * s;
  const vec3 u1 = 2.0 * cross(v, local);
  const vec3 move = (local + q.x * u1 + cross(v, u1)) * (gate * noiseScale);
  for (uint k = 0u; k < 3u; ++k) position[3u * i + k] += move[k];
}
