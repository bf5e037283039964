#version 450
// The corners of the interface's triangles: positions in the interface's pixels to the window's clip space.
layout(location = 0) in vec2 position;
layout(location = 1) in vec2 textureAt;
layout(location = 2) in vec4 colour;
layout(location = 0) out vec4 tint;
layout(location = 1) out vec2 at;
layout(push_constant) uniform Push {
  vec2 scale;
  vec2 offset;
};

void main() {
  tint = colour;
  at = textureAt;
  gl_Position = vec4(position * scale + offset, 0.0, 1.0);
}
