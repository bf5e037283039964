#include "gs/splats/gaussian_set.h"

namespace quor::gs {

void GaussianSet::resize(uint64_t n) {
  for (size_t g = 0; g < kGroupCount; ++g) group(static_cast<Group>(g)).resize(n * kGroupWidths[g]);
  count = n;
}

std::vector<float>& GaussianSet::group(Group g) {
  switch (g) {
    case kPositions:
      return positions;
    case kScales:
      return scales;
    case kRotations:
      return rotations;
    case kOpacities:
      return opacities;
    case kShDc:
      return shDc;
    default:
      return shRest;
  }
}

const std::vector<float>& GaussianSet::group(Group g) const {
  return const_cast<GaussianSet*>(this)->group(g);
}

}  // namespace quor::gs
