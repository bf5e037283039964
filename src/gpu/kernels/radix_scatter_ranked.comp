// radix_scatter_ranked: what radix_scatter does, with few barriers: the choice for software drivers, where a barrier
// costs more than the work between two of them.
//
// The place of a pair is places[digit * blocks + g] plus the number of earlier pairs of the block with the same digit.
// These ranks come from one prefix sum over the invocations of all 16 digit counts at once, packed two to a word.
//
// binding  name       element  shape        access
// 0        keys_in    uint     count        read
// 1        values_in  uint     count        read
// 2        keys_out   uint     count        write
// 3        values_out uint     count        write
// 4        places     uint     16 x blocks  read
//
// push: count (pairs), shift (bits), blocks (= ceil(count/1024))
//
// One group a block, four consecutive places an invocation. Every invocation counts in a column of its own; a barrier
// stands between the columns, the sums of 8 columns each and the sums of those. Targets are distinct.
#version 450
#extension GL_GOOGLE_include_directive : require
layout(local_size_x = 256) in;

layout(set = 0, binding = 0) readonly buffer KeysIn { uint keys_in[]; };
layout(set = 0, binding = 1) readonly buffer ValuesIn { uint values_in[]; };
layout(set = 0, binding = 2) writeonly buffer KeysOut { uint keys_out[]; };
layout(set = 0, binding = 3) writeonly buffer ValuesOut { uint values_out[]; };
layout(set = 0, binding = 4) readonly buffer Places { uint places[]; };
layout(push_constant) uniform Push {
  uint count;
  uint shift;
  uint blocks;
};

#include "item_index.glsl"

const uint kWords = 8u;     // of two digits each
const uint kColumns = 8u;   // that one invocation sums
const uint kChunks = 32u;   // of so many columns

shared uint counts[kWords * 256u];     // word-major: columns of one word lie side by side
shared uint totals[kWords * kChunks];  // the same for chunks

uint wordOf(uint digit) { return digit >> 1; }
uint laneOf(uint digit) { return (digit & 1u) * 16u; }

void main() {
  const uint block = groupIndex();
  if (block >= blocks) return;
  const uint t = gl_LocalInvocationID.x;
  const uint first = block * 1024u + t * 4u;
  const uint end = min(first + 4u, count);

  for (uint w = 0u; w < kWords; ++w) counts[w * 256u + t] = 0u;
  uint keys[4];
  uint ranks[4];
  for (uint i = 0u; i < 4u; ++i) {
    if (first + i >= end) break;
    keys[i] = keys_in[first + i];
    const uint digit = (keys[i] >> shift) & 15u;
    const uint word = counts[wordOf(digit) * 256u + t];
    ranks[i] = (word >> laneOf(digit)) & 0xFFFFu;
    counts[wordOf(digit) * 256u + t] = word + (1u << laneOf(digit));
  }
  barrier();

  uint running = 0u;
  for (uint c = 0u; c < kColumns; ++c) {
    const uint own = counts[t * kColumns + c];
    counts[t * kColumns + c] = running;
    running += own;
  }
  totals[t] = running;
  barrier();

  if (t < kWords) {
    running = 0u;
    for (uint c = 0u; c < kChunks; ++c) {
      const uint own = totals[t * kChunks + c];
      totals[t * kChunks + c] = running;
      running += own;
    }
  }
  barrier();

  for (uint i = 0u; i < 4u; ++i) {
    if (first + i >= end) break;
    const uint digit = (keys[i] >> shift) & 15u;
    const uint word = counts[wordOf(digit) * 256u + t] + totals[wordOf(digit) * kChunks + t / kColumns];
    const uint target = places[digit * blocks + block] + ((word >> laneOf(digit)) & 0xFFFFu) + ranks[i];
    keys_out[target] = keys[i];
    values_out[target] = values_in[first + i];
  }
}
