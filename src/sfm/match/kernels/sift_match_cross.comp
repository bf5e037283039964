// sift_match_cross: the last pass of SIFT matching. Keeps a match only when each of its two features is the other's best.
//
// binding  name     element  shape                     access
// 0        match_a  int      count1                    read
// 1        match_b  int      count2                    read
// 2        results  int      from first_result, count1 write: feature of the second image or -1
//
// push: count1, count2, first_result
#version 450
#extension GL_GOOGLE_include_directive : require
layout(local_size_x = 256) in;

layout(set = 0, binding = 0) readonly buffer MatchA { int match_a[]; };
layout(set = 0, binding = 1) readonly buffer MatchB { int match_b[]; };
layout(set = 0, binding = 2) writeonly buffer Results { int results[]; };
layout(push_constant) uniform Push {
  uint count1;
  uint count2;
  uint first_result;
};

#include "gpu/kernels/include/item_index.glsl"

void main() {
  const uint feature = itemIndex();
  if (feature >= count1) return;
  const int other = match_a[feature];
  const bool mutual = uint(other) < count2 && match_b[max(other, 0)] == int(feature);
  results[first_result + feature] = mutual ? other : -1;
}
