// The inputs that bin_count and bin_write share: the depth-ordered splats and their footprints.
layout(local_size_x = 256) in;
layout(binding = 0) readonly buffer Order { uint order[]; };
layout(binding = 1) readonly buffer Mean { float mean[]; };
layout(binding = 2) readonly buffer Conic { float conic[]; };
layout(binding = 3) readonly buffer Opacity { float opacity[]; };
layout(binding = 4) readonly buffer HalfExtent { float halfExtent[]; };
layout(binding = 5) readonly buffer Visible { int visible[]; };
layout(push_constant) uniform Push {
  uint count;
  uint width;
  uint height;
  uint tileSize;
  uint tilesX;
  uint tilesY;
  uint reserved0;
  uint reserved1;
};

// false when splat i is listed nowhere.
bool footprint(uint i, out Footprint f) {
  const float s = 255.0 * opacity[i];
  if (visible[i] == 0 || !(s > 1.0)) return false;
  f.mean = vec2(mean[2u * i], mean[2u * i + 1u]);
  f.conic = vec3(conic[3u * i], conic[3u * i + 1u], conic[3u * i + 2u]);
  f.threshold = 2.0 * log(s);
  const vec2 e = vec2(halfExtent[2u * i], halfExtent[2u * i + 1u]);
  // Clamped before the conversion: a float beyond the integers' range has no defined integer.
  const vec2 lastTile = vec2(tilesX, tilesY) - 1.0;
  f.first = ivec2(clamp(floor((f.mean - e) / float(TILE_SIZE)), vec2(0.0), lastTile));
  f.last = ivec2(clamp(floor((f.mean + e) / float(TILE_SIZE)), vec2(0.0), lastTile));
  return true;
}
