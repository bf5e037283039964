#version 450
// Writes each pair to its place. Last step of a pass of the radix sort by runs, after radix_runs_count and the scan of its
// table. Stable: runs follow each other in the table, and each is walked in order.
//
// binding | name      | element | shape      | access
//       0 | keysIn    | uint    | count      | read
//       1 | valuesIn  | uint    | count      | read
//       2 | keysOut   | uint    | count      | write
//       3 | valuesOut | uint    | count      | write
//       4 | table     | uint    | 256 x runs | read and write, the next place of digit d from run r
// Push: count, shift (bits), runs. Places are distinct; an invocation keeps to its own column of the table.
#extension GL_GOOGLE_include_directive : require
#include "gpu/kernels/interfaces.h"
layout(local_size_x = 8) in;
DECLARE_BUFFERS(RADIX_RUNS_SCATTER)
DECLARE_PUSH(RADIX_RUNS_SCATTER)

void main() {
  const uint run = gl_GlobalInvocationID.x;
  const uint each = (count + runs - 1u) / runs;
  uint i = run * each;
  const uint end = min(i + each, count);
  if (run >= runs || i >= end) return;
  do {
    const uint key = keysIn[i];
    const uint entry = ((key >> shift) & 255u) * runs + run;
    const uint place = table[entry];
    table[entry] = place + 1u;
    keysOut[place] = key;
    valuesOut[place] = valuesIn[i];
  } while (++i < end);
}
