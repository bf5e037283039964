// radix_scatter: orders each block of 1024 pairs by the current digit and writes each pair to its place. Last step of a
// pass of the radix sort, after radix_hist and the scan of its histogram.
//
// Within the block four stable splits by one bit each order the pairs by digit; a pair at place q of the ordered block
// goes to places[digit * blocks + g] + q - (first place of that digit in the block). Stable, as blocks follow each other
// in the scanned histogram.
//
// binding | name      | element | shape       | access
//       0 | keysIn    | uint    | count       | read
//       1 | valuesIn  | uint    | count       | read
//       2 | keysOut   | uint    | count       | write
//       3 | valuesOut | uint    | count       | write
//       4 | places    | uint    | 16 x blocks | read
//
// push: count (pairs), shift (bits), blocks (= ceil(count/1024))
//
// One group a block, four consecutive places an invocation. Items past the count are the largest key and come after all
// true ones of the block, so they are never written. Each split reads its items into registers, meets in the
// shared-memory scan and only then overwrites shared memory; targets are distinct, in the block and in the output.
#version 450
#extension GL_GOOGLE_include_directive : require
#include "gpu/kernels/interfaces.h"
layout(local_size_x = 256) in;

DECLARE_BUFFERS(RADIX_SCATTER)
DECLARE_PUSH(RADIX_SCATTER)

#include "gpu/kernels/include/group_scan.glsl"
#include "gpu/kernels/include/item_index.glsl"

shared uint keys[1024];
shared uint values[1024];
shared uint starts[16];

uint digitAt(uint place) { return (keys[place] >> shift) & 15u; }

void splitByBit(uint bit) {
  const uint first = gl_LocalInvocationID.x * 4u;
  uint key[4];
  uint value[4];
  uint zeros = 0u;
  for (uint i = 0u; i < 4u; ++i) {
    key[i] = keys[first + i];
    value[i] = values[first + i];
    zeros += 1u - ((key[i] >> bit) & 1u);
  }
  uint zeros_before = groupInclusiveSum(zeros) - zeros;
  const uint total_zeros = group_sums[255];
  for (uint i = 0u; i < 4u; ++i) {
    const bool one = ((key[i] >> bit) & 1u) != 0u;
    const uint target = one ? total_zeros + first + i - zeros_before : zeros_before;
    keys[target] = key[i];
    values[target] = value[i];
    zeros_before += one ? 0u : 1u;
  }
  barrier();
}

void main() {
  const uint block = groupIndex();
  if (block >= blocks) return;
  const uint begin = block * 1024u;
  const uint valid = min(1024u, count - begin);
  const uint first = gl_LocalInvocationID.x * 4u;
  for (uint q = first; q < first + 4u; ++q) {
    keys[q] = q < valid ? keysIn[begin + q] : 0xFFFFFFFFu;
    values[q] = q < valid ? valuesIn[begin + q] : 0u;
  }
  barrier();
  for (uint bit = shift; bit < shift + 4u; ++bit) splitByBit(bit);

  for (uint q = first; q < first + 4u; ++q) {
    if (q == 0u || digitAt(q) != digitAt(q - 1u)) starts[digitAt(q)] = q;
  }
  barrier();
  for (uint q = first; q < min(first + 4u, valid); ++q) {
    const uint digit = digitAt(q);
    const uint target = places[digit * blocks + block] + q - starts[digit];
    keysOut[target] = keys[q];
    valuesOut[target] = values[q];
  }
}
