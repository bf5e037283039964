// sift_match_reduce: the second pass of SIFT matching. Reduces the tiles' partial results to the best match of every
// feature of either image in the other, or none.
//
// A descriptor has length 512, so the distance of two is the angle acos(min(dot / 512^2, 1)). The best is a match when
// its angle is at most maxDistance and less than maxRatio times the angle of the second best (Lowe 2004, section 7.1,
// on angles). Angles are compared as their squares by
//   acos(x)^2 = (1 - x) P(x)^2, |error of acos| <= 2e-8   (Abramowitz and Stegun 4.4.46)
// which takes only additions and multiplications: unlike a device's own acos they are rounded the same everywhere.
//
// binding | name           | element | shape                 | access
//       0 | rowPartials    | uvec2   | tile columns x count1 | read: the best two keys
//       1 | columnPartials | uvec2   | tile rows x count2    | read
//       2 | matchA         | int     | count1                | write: feature of the second image or -1
//       3 | matchB         | int     | count2                | write: feature of the first image or -1
//
// push: count1, count2, tileRows, tileColumns; maxRatio, maxDistance (radians)
//
// One invocation a feature, those of the first image first.
#version 450
#extension GL_GOOGLE_include_directive : require
#include "sfm/match/kernels/interfaces.h"
layout(local_size_x = 256) in;

DECLARE_BUFFERS(SIFT_MATCH_REDUCE)
DECLARE_PUSH(SIFT_MATCH_REDUCE)

#include "gpu/kernels/include/item_index.glsl"
#include "sfm/match/kernels/sift_keys.glsl"

const uint kUnit = 512u * 512u;

float squaredAngle(uint dots) {
  const uint inside = min(dots, kUnit);
  const float x = float(inside) / float(kUnit);
  precise float p = -0.0012624911;
  p = p * x + 0.0066700901;
  p = p * x - 0.0170881256;
  p = p * x + 0.0308918810;
  p = p * x - 0.0501743046;
  p = p * x + 0.0889789874;
  p = p * x - 0.2145988016;
  p = p * x + 1.5707963050;
  precise const float squared = p * p * (float(kUnit - inside) / float(kUnit));
  return squared;
}

int matchOf(uint best, uint second, uint index) {
  const float angle = squaredAngle(best);
  precise const float farthest = maxDistance * maxDistance;
  precise const float limit = maxRatio * maxRatio * squaredAngle(second);
  return angle <= farthest && angle < limit ? int(index) : -1;
}

void main() {
  const uint item = itemIndex();
  if (item >= count1 + count2) return;
  const bool in_first = item < count1;
  const uint feature = in_first ? item : item - count1;
  const uint tiles = in_first ? tileColumns : tileRows;

  uint best = 0u, second = 0u, index = 0u;
  for (uint tile = 0u; tile < tiles; ++tile) {
    uvec2 partial;
    if (in_first) {
      partial = rowPartials[tile * count1 + feature];
    } else {
      partial = columnPartials[tile * count2 + feature];
    }
    const uint dots = dotsOf(partial.x);
    second = max(max(second, dotsOf(partial.y)), min(best, dots));
    if (dots > best) {
      best = dots;
      index = tile * kTile + placeOf(partial.x);
    }
  }
  const int match = matchOf(best, second, index);
  if (in_first) {
    matchA[feature] = match;
  } else {
    matchB[feature] = match;
  }
}
