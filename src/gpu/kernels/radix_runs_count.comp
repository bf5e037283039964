#version 450
// How often each digit occurs in each run of keys. First step of a pass of the radix sort by runs, the choice for software
// drivers: an invocation walks a run of its own with counters of its own, so that there are no barriers, no shared memory
// and, with eight bits a digit, half as many passes as by blocks.
//
// table[d * runs + r] += number of keys of run r with (key >> shift) & 255 = d. Digit-major, so that its exclusive prefix
// sum is the place of the first key of digit d from run r.
//
// binding | name  | element | shape      | access
//       0 | keys  | uint    | count      | read
//       1 | table | uint    | 256 x runs | read and write, zero before
// Push: count, shift (bits), runs. No races.
#extension GL_GOOGLE_include_directive : require
#include "gpu/kernels/interfaces.h"
layout(local_size_x = 8) in;
DECLARE_BUFFERS(RADIX_RUNS_COUNT)
DECLARE_PUSH(RADIX_RUNS_COUNT)

void main() {
  const uint run = gl_GlobalInvocationID.x;
  const uint each = (count + runs - 1u) / runs;
  uint i = run * each;
  const uint end = min(i + each, count);
  if (run >= runs || i >= end) return;
  do {
    ++table[((keys[i] >> shift) & 255u) * runs + run];
  } while (++i < end);
}
