// sift_match_cross: the last pass of SIFT matching. Keeps a match only when each of its two features is the other's best.
//
// binding | name    | element | shape                    | access
//       0 | matchA  | int     | count1                   | read
//       1 | matchB  | int     | count2                   | read
//       2 | results | int     | from firstResult, count1 | write: feature of the second image or -1
//
// push: count1, count2, firstResult
#version 450
#extension GL_GOOGLE_include_directive : require
#include "sfm/match/kernels/interfaces.h"
layout(local_size_x = 256) in;

DECLARE_BUFFERS(SIFT_MATCH_CROSS)
DECLARE_PUSH(SIFT_MATCH_CROSS)

#include "gpu/kernels/include/item_index.glsl"

void main() {
  const uint feature = itemIndex();
  if (feature >= count1) return;
  const int other = matchA[feature];
  const bool mutual = uint(other) < count2 && matchB[max(other, 0)] == int(feature);
  results[firstResult + feature] = mutual ? other : -1;
}
