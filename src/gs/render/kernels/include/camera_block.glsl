// The camera as every projection kernel gets it: 112 bytes of push constants. gs/renderer.cpp fills it (CameraBlock).
layout(push_constant) uniform CameraBlock {
  vec4 row0;        // world to camera, one row of [R | t] each
  vec4 row1;
  vec4 row2;
  vec4 intrinsics;  // fx, fy, cx, cy in pixels
  vec4 centre;      // camera centre in the world, xyz
  vec4 range;       // near plane, unused
  uvec4 size;       // splats, width, height, active SH degree
} cam;

vec3 toCamera(vec3 p) {
  const vec4 h = vec4(p, 1.0);
  return vec3(dot(cam.row0, h), dot(cam.row1, h), dot(cam.row2, h));
}
