#version 450
// Projects every splat into the view: screen mean, conic, colour, depth, half-extent and whether it can be seen.
//
//   t = R x + tvec; J the pinhole Jacobian at the clamped point; S2 = J W S W^T J^T + 0.3 I; conic = S2^-1
//   half-extent along an axis = sqrt(2 ln(255 opacity) S2.aa): where opacity exp(-q / 2) falls to 1/255
//   colour = max(0, 0.5 + sum of SH coefficient x basis(direction from the camera to the mean))
// Zwicker et al. 2001 (EWA), Kerbl et al. 2023.
//
// binding | name       | element | shape  | access
//       0 | position   | float   | N x 3  | read
//       1 | scale      | float   | N x 3  | read, activated
//       2 | rotation   | float   | N x 4  | read, w x y z of any length
//       3 | opacity    | float   | N      | read, activated
//       4 | shDc       | float   | N x 3  | read
//       5 | shRest     | float   | N x 45 | read
//       6 | mean       | float   | N x 2  | write, pixels
//       7 | conic      | float   | N x 3  | write
//       8 | colour     | float   | N x 3  | write
//       9 | depth      | float   | N      | write
//      10 | halfExtent | float   | N x 2  | write, pixels
//      11 | visible    | int     | N      | write, 0 = culled (the other outputs are then not written)
// Push: the camera block. One invocation a splat, no races.
#extension GL_GOOGLE_include_directive : require
#include "gs/render/kernels/interfaces.h"
#include "gs/render/kernels/include/shared_constants.h"
#include "gpu/kernels/include/item_index.glsl"
#include "gs/render/kernels/include/camera_block.glsl"
#include "gs/render/kernels/include/projection.glsl"
#include "gs/render/kernels/include/spherical_harmonics.glsl"

layout(local_size_x = 256) in;
DECLARE_BUFFERS(PREPROCESS_FORWARD)

vec3 shColour(uint i, vec3 direction) {
  vec3 c = vec3(0.5) + SH_C0 * vec3(shDc[3u * i], shDc[3u * i + 1u], shDc[3u * i + 2u]);
  const uint rest = shRestCount(cam.size.w);
  if (rest > 0u) {
    float basis[15];
    shBasis(direction, basis);
    const uint base = i * SH_REST_FLOATS;
    for (uint k = 0u; k < 15u; ++k) {
      if (k < rest) {
        c += basis[k] * vec3(shRest[base + 3u * k], shRest[base + 3u * k + 1u], shRest[base + 3u * k + 2u]);
      }
    }
  }
  return max(c, vec3(0.0));
}

void main() {
  const uint i = itemIndex();
  if (i >= cam.size.x) return;
  visible[i] = 0;

  const vec3 p = vec3(position[3u * i], position[3u * i + 1u], position[3u * i + 2u]);
  const vec3 t = toCamera(p);
  const float o = opacity[i];
  const vec4 q = vec4(rotation[4u * i], rotation[4u * i + 1u], rotation[4u * i + 2u], rotation[4u * i + 3u]);
  // Written so that a NaN anywhere culls the splat.
  if (!(t.z > cam.range.x) || !(255.0 * o > 1.0) || !(dot(q, q) > DIVISION_GUARD)) return;

  const vec3 s = vec3(scale[3u * i], scale[3u * i + 1u], scale[3u * i + 2u]);
  const vec4 cov = screenCovariance(projectSplat(t, s, q * inversesqrt(dot(q, q))));
  if (!(cov.w > 0.0) || isinf(cov.w)) return;

  const vec2 m = cam.intrinsics.xy * t.xy / t.z + cam.intrinsics.zw;
  const vec2 e = sqrt(2.0 * log(255.0 * o) * cov.xz);
  if (!all(greaterThan(m + e, vec2(0.0))) || !all(lessThan(m - e, vec2(cam.size.yz)))) return;

  const vec3 c = shColour(i, normalize(p - cam.centre.xyz));
  mean[2u * i] = m.x;
  mean[2u * i + 1u] = m.y;
  conic[3u * i] = cov.z / cov.w;
  conic[3u * i + 1u] = -cov.y / cov.w;
  conic[3u * i + 2u] = cov.x / cov.w;
  for (uint k = 0u; k < 3u; ++k) colour[3u * i + k] = c[k];
  depth[i] = t.z;
  halfExtent[2u * i] = e.x;
  halfExtent[2u * i + 1u] = e.y;
  visible[i] = 1;
}
