// Which tiles a splat's footprint touches. Counting and writing run this same code, so that both find the same tiles.

struct Footprint {
  vec2 mean;
  vec3 conic;
  float threshold;  // squared distance at which opacity exp(-q / 2) falls to 1/255
  ivec2 first;      // candidate tiles, inclusive
  ivec2 last;
};

float conicAt(Footprint f, vec2 point) {
  const vec2 d = point - f.mean;
  return f.conic.x * d.x * d.x + 2.0 * f.conic.y * d.x * d.y + f.conic.z * d.y * d.y;
}

// Least q along the horizontal edge at y and along the vertical edge at x of the rectangle low..high.
float leastOnRow(Footprint f, vec2 low, vec2 high, float y) {
  const float x = f.mean.x - f.conic.y * (y - f.mean.y) / max(f.conic.x, DIVISION_GUARD);
  return conicAt(f, vec2(clamp(x, low.x, high.x), y));
}
float leastOnColumn(Footprint f, vec2 low, vec2 high, float x) {
  const float y = f.mean.y - f.conic.y * (x - f.mean.x) / max(f.conic.z, DIVISION_GUARD);
  return conicAt(f, vec2(x, clamp(y, low.y, high.y)));
}

bool touchesTile(Footprint f, ivec2 tile, vec2 imageSize) {
  const vec2 low = vec2(tile * TILE_SIZE);
  const vec2 high = min(low + vec2(TILE_SIZE), imageSize);
  if (all(greaterThanEqual(f.mean, low)) && all(lessThanEqual(f.mean, high))) return true;
  const float least = min(min(leastOnRow(f, low, high, low.y), leastOnRow(f, low, high, high.y)),
                          min(leastOnColumn(f, low, high, low.x), leastOnColumn(f, low, high, high.x)));
  return least < f.threshold;
}
