#version 450
// Writes each pair to its place. Last step of a pass of the radix sort by ballots, after radix_ballot_hist and the scan of
// its histogram. Stable: blocks follow each other, in a block its subgroups, and a subgroup walks its items in order.
//
// Eight ballots, one for each bit of the digit, tell an invocation which others of its subgroup have the same digit. The
// subgroup counts what it has seen of each digit before.
//
// binding | name      | element | shape        | access
//       0 | keysIn    | uint    | count        | read
//       1 | valuesIn  | uint    | count        | read
//       2 | keysOut   | uint    | count        | write
//       3 | valuesOut | uint    | count        | write
//       4 | places    | uint    | 256 x blocks | read, of the first key of each digit from each block
// Push: as radix_ballot_hist. One group a block; its places are distinct. Subgroups of 8 to 128, all of one size.
#extension GL_GOOGLE_include_directive : require
#extension GL_EXT_control_flow_attributes : require
#extension GL_KHR_shader_subgroup_basic : require
#extension GL_KHR_shader_subgroup_ballot : require
#include "gpu/kernels/interfaces.h"
#include "gpu/kernels/include/item_index.glsl"

layout(local_size_x = 256) in;
DECLARE_BUFFERS(RADIX_BALLOT_SCATTER)
DECLARE_PUSH(RADIX_BALLOT_SCATTER)

const uint kRounds = 8u;
const uint kWords = 128u;  // of counters, two digits a word: a block's 2048 items fit into 16 bits
const uint kMostSubgroups = 32u;
shared uint sSeen[kMostSubgroups * kWords];

uint halfOf(uint word, uint digit) { return (word >> (16u * (digit & 1u))) & 0xFFFFu; }

void main() {
  const uint block = groupIndex();
  if (block >= blocks) return;
  const uint t = gl_LocalInvocationID.x;
  const uint subgroups = gl_NumSubgroups, lanes = 256u / subgroups;
  for (uint i = t; i < subgroups * kWords; i += 256u) sSeen[i] = 0u;
  barrier();

  const uint own = gl_SubgroupID * kWords;
  const uint first = block * 2048u + gl_SubgroupID * lanes * kRounds + gl_SubgroupInvocationID;
  uint key[kRounds], rank[kRounds];
  [[unroll]] for (uint r = 0u; r < kRounds; ++r) {
    const uint item = first + r * lanes;
    const bool valid = item < count;
    key[r] = valid ? keysIn[item] : 0u;
    const uint digit = (key[r] >> shift) & 255u;
    uvec4 same = subgroupBallot(valid);
    [[unroll]] for (uint bit = 0u; bit < 8u; ++bit) {
      const bool set = (digit >> bit & 1u) != 0u;
      const uvec4 others = subgroupBallot(set);
      same &= set ? others : ~others;
    }
    const uint earlier = subgroupBallotExclusiveBitCount(same);
    rank[r] = halfOf(sSeen[own + digit / 2u], digit) + earlier;
    subgroupMemoryBarrierShared();
    subgroupBarrier();
    if (valid && earlier == 0u) {
      atomicAdd(sSeen[own + digit / 2u], subgroupBallotBitCount(same) << (16u * (digit & 1u)));
    }
    subgroupMemoryBarrierShared();
    subgroupBarrier();
  }
  barrier();

  // What the subgroups before have seen, two digits at once.
  if (t < kWords) {
    uint before = 0u;
    for (uint s = 0u; s < subgroups; ++s) {
      const uint seen = sSeen[s * kWords + t];
      sSeen[s * kWords + t] = before;
      before += seen;
    }
  }
  barrier();

  [[unroll]] for (uint r = 0u; r < kRounds; ++r) {
    const uint item = first + r * lanes;
    if (item >= count) continue;
    const uint digit = (key[r] >> shift) & 255u;
    const uint place = places[digit * blocks + block] + halfOf(sSeen[own + digit / 2u], digit) + rank[r];
    keysOut[place] = key[r];
    valuesOut[place] = valuesIn[item];
  }
}
