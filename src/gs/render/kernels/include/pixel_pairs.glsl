// How the paired blending kernels share out a tile among 128 invocations: each has two pixels, one above the other, and
// 32 that follow each other have a block of 8 x 8. A batch of splats lies in shared memory; a subgroup first finds out
// which of them reach any of its pixels, one splat an invocation, and then walks only those. Works with subgroups of 8 to
// 128. The active lanes are counted, since some devices run fewer than the subgroup size that they report.
const uint kGroup = 128u;
const float kHalfLog2e = 0.72134752044448170;

shared vec4 sShape[kGroup];  // mean; of the quadratic form in powers of two: xx, xy
shared vec4 sLook[kGroup];   // yy of the form, opacity, red, green
shared float sBlue[kGroup];

uvec2 upperPixel() {
  const uint i = gl_LocalInvocationIndex;
  const uvec2 block = uvec2(i >> 5u & 1u, i >> 6u) * 8u;
  return gl_WorkGroupID.xy * TILE_SIZE + block + uvec2(i & 7u, (i >> 3u & 3u) * 2u);
}

void loadSplat(uint slot, uint i) {
  const vec3 form = kHalfLog2e * vec3(conic[3u * i], 2.0 * conic[3u * i + 1u], conic[3u * i + 2u]);
  sShape[slot] = vec4(mean[2u * i], mean[2u * i + 1u], form.xy);
  sLook[slot] = vec4(form.z, opacity[i], colour[3u * i], colour[3u * i + 1u]);
  sBlue[slot] = colour[3u * i + 2u];
}

float formAt(vec3 form, vec2 d) { return (form.x * d.x + form.y * d.y) * d.x + form.z * d.y * d.y; }

// The centres of the outermost pixels of a subgroup.
struct Block {
  vec2 low, high;
};
Block ownBlock(uvec2 upper) {
  return Block(vec2(subgroupMin(upper)) + 0.5, vec2(subgroupMax(upper) + uvec2(0u, 1u)) + 0.5);
}

// Whether the splat's alpha reaches 1/255 anywhere on the block, with a little to spare for rounding.
bool reaches(uint slot, Block block) {
  const vec4 shape = sShape[slot], look = sLook[slot];
  const vec3 form = vec3(shape.zw, look.x);
  const vec2 low = block.low - shape.xy, high = block.high - shape.xy;
  const vec2 xOfRow = clamp(-0.5 * form.y / form.x * vec2(low.y, high.y), low.x, high.x);
  const vec2 yOfColumn = clamp(-0.5 * form.y / form.z * vec2(low.x, high.x), low.y, high.y);
  float least = min(min(formAt(form, vec2(xOfRow.x, low.y)), formAt(form, vec2(xOfRow.y, high.y))),
                    min(formAt(form, vec2(low.x, yOfColumn.x)), formAt(form, vec2(high.x, yOfColumn.y))));
  if (all(lessThanEqual(low, vec2(0.0))) && all(greaterThanEqual(high, vec2(0.0)))) least = 0.0;
  return look.y * exp2(-least) >= 0.999 * ALPHA_MIN;
}

// Of both pixels; negative where rounding has made a splat brighter than its centre.
vec2 formOnPair(vec4 shape, vec4 look, float dx, vec2 dy) { return shape.z * dx * dx + dy * (shape.w * dx + look.x * dy); }

// v where the condition holds, else 0. No invocation leaves its neighbours, which the next subgroup operation needs.
vec2 where(bvec2 condition, vec2 v) { return mix(vec2(0.0), v, condition); }

uint lanesRunning() { return subgroupBallotBitCount(subgroupBallot(true)); }
