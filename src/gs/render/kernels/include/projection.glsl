// The pinhole projection of one splat, shared by the forward and the backward pass so that both see the same numbers.
// EWA splatting (Zwicker et al. 2001); the clamp of the Jacobian's point as in Kerbl et al. 2023.

mat3 rotationMatrix(vec4 q) {  // q = (w, x, y, z), unit length; the columns are the splat's axes in the world
  const float w = q.x, x = q.y, y = q.z, z = q.w;
  return mat3(1.0 - 2.0 * (y * y + z * z), 2.0 * (x * y + w * z), 2.0 * (x * z - w * y),
              2.0 * (x * y - w * z), 1.0 - 2.0 * (x * x + z * z), 2.0 * (y * z + w * x),
              2.0 * (x * z + w * y), 2.0 * (y * z - w * x), 1.0 - 2.0 * (x * x + y * y));
}

struct Projection {
  vec2 slope;        // x / z and y / z of the point at which the Jacobian is taken, after the clamp
  vec2 free;         // 1 where the clamp was not active
  vec3 t0, t1;       // rows of T = J W
  mat3 axes;         // R(q)
  vec3 v0, v1;       // rows of V = T R diag(s): the 2-D covariance is V V^T
};

Projection projectSplat(vec3 t, vec3 scale, vec4 unitQuaternion) {
  Projection p;
  const vec2 f = cam.intrinsics.xy;
  const vec2 low = -cam.intrinsics.zw / f;
  const vec2 high = (vec2(cam.size.yz) - cam.intrinsics.zw) / f;
  const vec2 s = t.xy / t.z;
  p.slope = clamp(s, FRUSTUM_CLAMP * low, FRUSTUM_CLAMP * high);
  p.free = vec2(equal(p.slope, s));
  const vec2 j = f / t.z;
  p.t0 = j.x * (cam.row0.xyz - p.slope.x * cam.row2.xyz);
  p.t1 = j.y * (cam.row1.xyz - p.slope.y * cam.row2.xyz);
  p.axes = rotationMatrix(unitQuaternion);
  p.v0 = (p.t0 * p.axes) * scale;
  p.v1 = (p.t1 * p.axes) * scale;
  return p;
}

// The low-pass filtered 2-D covariance (a, b, c) and its determinant, which is summed from non-negative parts: the naive
// a c - b^2 cancels for thin splats.
vec4 screenCovariance(Projection p) {
  const float a = dot(p.v0, p.v0), b = dot(p.v0, p.v1), c = dot(p.v1, p.v1);
  const vec3 n = cross(p.v0, p.v1);
  const float det = dot(n, n) + SCREEN_BLUR * (a + c) + SCREEN_BLUR * SCREEN_BLUR;
  return vec4(a + SCREEN_BLUR, b, c + SCREEN_BLUR, det);
}
