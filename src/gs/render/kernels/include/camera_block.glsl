// The camera as every projection kernel gets it; Renderer::project fills it.
layout(push_constant) uniform CameraBlock { CAMERA_PUSH(DECLARE_FIELD) } cam;

vec3 toCamera(vec3 p) {
  const vec4 h = vec4(p, 1.0);
  return vec3(dot(cam.row0, h), dot(cam.row1, h), dot(cam.row2, h));
}
