// How the tiled loss kernels blur: a group of 128 invocations takes 16 x 16 pixels and reads five more on each side into
// shared memory. Rows are blurred first, in runs of four pixels, then columns, in runs of two: 12 or 14 loads of shared
// memory for a run instead of 11 for every pixel.
#include "gs/render/kernels/loss/ssim_window.glsl"

const int kSide = 16;
const int kReach = kSide + 2 * kRadius;  // read along each side
const int kRowRun = 4, kColumnRun = 2;
const uint kInvocations = 128u;

layout(local_size_x = 128) in;

// Where the run of rows of an invocation lies: below the group's items, a row of kReach and its first column.
bool rowRun(uint item, out int row, out int column) {
  row = int(item) / (kSide / kRowRun);
  column = int(item) % (kSide / kRowRun) * kRowRun;
  return row < kReach;
}

// The column of an invocation and the first of its kColumnRun rows.
ivec2 columnRun() { return ivec2(gl_LocalInvocationIndex % uint(kSide), int(gl_LocalInvocationIndex) / kSide * kColumnRun); }

// The pixel at a place of the area that the group reads; false outside the image.
bool pixelAt(uint place, ivec2 size, out int pixel) {
  const ivec2 at = ivec2(gl_WorkGroupID.xy) * kSide - kRadius + ivec2(int(place) % kReach, int(place) / kReach);
  pixel = at.y * size.x + at.x;
  return all(greaterThanEqual(at, ivec2(0))) && all(lessThan(at, size));
}
