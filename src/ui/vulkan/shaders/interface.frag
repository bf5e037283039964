#version 450
// A texture's colour, tinted.
layout(location = 0) in vec4 tint;
layout(location = 1) in vec2 at;
layout(location = 0) out vec4 colour;
layout(binding = 0) uniform sampler2D picture;

void main() {
  colour = tint * texture(picture, at);
}
