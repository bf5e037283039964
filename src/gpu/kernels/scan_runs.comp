#version 450
// Exclusive prefix sum of a table of rows x runs counts, in place, and the sum before each row. One group of eight, each
// invocation with a stretch of its own: for tables so small that the barriers of scan_block cost more than the sums.
//
// binding | name   | element | shape       | access
//       0 | table  | uint    | rows x runs | read and write
//       1 | starts | uint    | rows + 1    | write, the total last
// Push: rows, runs. One group; a barrier between the stretches' sums and their use.
#extension GL_GOOGLE_include_directive : require
#include "gpu/kernels/interfaces.h"
layout(local_size_x = 8) in;
DECLARE_BUFFERS(SCAN_RUNS)
DECLARE_PUSH(SCAN_RUNS)

shared uint sums[8];

void main() {
  const uint t = gl_LocalInvocationID.x;
  const uint each = (rows + 7u) / 8u;
  const uint first = min(t * each, rows), end = min(first + each, rows);
  uint sum = 0u;
  for (uint i = first * runs; i < end * runs; ++i) sum += table[i];
  sums[t] = sum;
  barrier();
  uint running = 0u;
  for (uint k = 0u; k < 8u; ++k) running += k < t ? sums[k] : 0u;
  for (uint row = first; row < end; ++row) {
    starts[row] = running;
    for (uint i = row * runs; i < (row + 1u) * runs; ++i) {
      const uint own = table[i];
      table[i] = running;
      running += own;
    }
  }
  if (t == 7u) starts[rows] = running;
}
