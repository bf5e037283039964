#version 450
// Writes each pair to its place. Last step of a pass of the radix sort by runs, after radix_runs_count and the scan of its
// table. Stable: runs follow each other in the table, and each is walked in order.
//
// binding | name       | element | shape      | access
//       0 | keys_in    | uint    | count      | read
//       1 | values_in  | uint    | count      | read
//       2 | keys_out   | uint    | count      | write
//       3 | values_out | uint    | count      | write
//       4 | table      | uint    | 256 x runs | read and write, the next place of digit d from run r
// Push: count, shift (bits), runs. Places are distinct; an invocation keeps to its own column of the table.
#extension GL_GOOGLE_include_directive : require
layout(local_size_x = 8) in;
layout(binding = 0) readonly buffer KeysIn { uint keys_in[]; };
layout(binding = 1) readonly buffer ValuesIn { uint values_in[]; };
layout(binding = 2) writeonly buffer KeysOut { uint keys_out[]; };
layout(binding = 3) writeonly buffer ValuesOut { uint values_out[]; };
layout(binding = 4) buffer Table { uint table[]; };
layout(push_constant) uniform Push {
  uint count;
  uint shift;
  uint runs;
};

void main() {
  const uint run = gl_GlobalInvocationID.x;
  const uint each = (count + runs - 1u) / runs;
  uint i = run * each;
  const uint end = min(i + each, count);
  if (run >= runs || i >= end) return;
  do {
    const uint key = keys_in[i];
    const uint entry = ((key >> shift) & 255u) * runs + run;
    const uint place = table[entry];
    table[entry] = place + 1u;
    keys_out[place] = key;
    values_out[place] = values_in[i];
  } while (++i < end);
}
