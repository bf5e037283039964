// How the wide blending kernels share out a tile: one subgroup of eight invocations takes it as four blocks of 8 x 8 pixels,
// in each of which an invocation has a column of eight. The subgroup takes eight splats of the list at a time, one an
// invocation, finds out which of them reach each block, and hands those around by shuffles: a splat is loaded once for the
// tile's 256 pixels. Needs subgroups of exactly eight.
//
// Loops test their condition at the end: a driver that executes both sides of every branch would run the body once more
// for a condition at the beginning.
const uint kRows = 8u;
const vec4 kRowsA = vec4(0.0, 1.0, 2.0, 3.0), kRowsB = vec4(4.0, 5.0, 6.0, 7.0);

// The top left pixel of block 0 to 3 of the tile.
uvec2 blockCorner(uint block) { return gl_WorkGroupID.xy * TILE_SIZE + uvec2(block & 1u, block >> 1u) * kRows; }

// v where the condition holds, else 0: a choice costs less there than a factor of 0 or 1.
vec4 where(bvec4 condition, vec4 v) { return mix(vec4(0.0), v, condition); }

struct Splat {
  vec2 mean;
  vec3 conic;
  float opacity;
  vec3 colour;
};

Splat loadSplat(uint i) {
  return Splat(vec2(mean[2u * i], mean[2u * i + 1u]), vec3(conic[3u * i], conic[3u * i + 1u], conic[3u * i + 2u]),
               opacity[i], vec3(colour[3u * i], colour[3u * i + 1u], colour[3u * i + 2u]));
}

// The splat that invocation `from` holds.
Splat shuffleSplat(Splat s, uint from) {
  return Splat(vec2(subgroupShuffle(s.mean.x, from), subgroupShuffle(s.mean.y, from)),
               vec3(subgroupShuffle(s.conic.x, from), subgroupShuffle(s.conic.y, from), subgroupShuffle(s.conic.z, from)),
               subgroupShuffle(s.opacity, from),
               vec3(subgroupShuffle(s.colour.x, from), subgroupShuffle(s.colour.y, from), subgroupShuffle(s.colour.z, from)));
}

float conicAt(Splat s, vec2 d) { return (s.conic.x * d.x + 2.0 * s.conic.y * d.y) * d.x + s.conic.z * d.y * d.y; }

// Whether the splat's alpha reaches 1/255 anywhere on the block, with a little to spare for rounding.
bool reachesBlock(Splat s, vec2 corner) {
  const vec2 low = corner + 0.5 - s.mean, high = low + float(kRows - 1u);
  const vec2 xOfRow = clamp(-s.conic.y / s.conic.x * vec2(low.y, high.y), low.x, high.x);
  const vec2 yOfColumn = clamp(-s.conic.y / s.conic.z * vec2(low.x, high.x), low.y, high.y);
  float least = min(min(conicAt(s, vec2(xOfRow.x, low.y)), conicAt(s, vec2(xOfRow.y, high.y))),
                    min(conicAt(s, vec2(low.x, yOfColumn.x)), conicAt(s, vec2(high.x, yOfColumn.y))));
  if (all(lessThanEqual(low, vec2(0.0))) && all(greaterThanEqual(high, vec2(0.0)))) least = 0.0;
  return s.opacity * exp(-0.5 * least) >= 0.999 * ALPHA_MIN;
}
