// The pixels of a tile as the wide blending kernels share them out: 32 invocations a tile, each with a column of eight
// pixels, so that eight neighbouring invocations cover a block of 8 x 8 and what is the same for a whole column (the
// splat, dx and what follows from it) is loaded and computed once.
const uint kRows = 8u;
const vec4 kRowsA = vec4(0.0, 1.0, 2.0, 3.0), kRowsB = vec4(4.0, 5.0, 6.0, 7.0);

// The column's top pixel in the image.
uvec2 columnTop() {
  const uint block = gl_LocalInvocationIndex / kRows;
  return gl_WorkGroupID.xy * TILE_SIZE + uvec2(block & 1u, block >> 1u) * kRows +
         uvec2(gl_LocalInvocationIndex & (kRows - 1u), 0u);
}

// The least q = a dx^2 + 2 b dx dy + c dy^2 on the column that begins at distance d from the mean.
float leastOnColumn(vec3 conic, vec2 d) {
  const float dy = clamp(-conic.y * d.x / conic.z, d.y, d.y + float(kRows - 1u));
  return (conic.x * d.x + 2.0 * conic.y * dy) * d.x + conic.z * dy * dy;
}
