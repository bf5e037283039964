// What the splat covers, from the buffers and the push block that bin_count and bin_write share.

// False when splat i is listed nowhere.
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
