// Made-up splats for the tests of the file formats.
#pragma once

#include <cstring>
#include <limits>

#include "base/split_mix64.h"
#include "gs/splats/gaussian_set.h"

namespace quor::test {

// Every value its own; the last opacity is NaN and the first scale infinite, since a file must keep those, too.
inline gs::GaussianSet randomSplats(uint64_t count, uint64_t seed = 1) {
  SplitMix64 random(seed);
  gs::GaussianSet set;
  set.resize(count);
  for (size_t g = 0; g < gs::kGroupCount; ++g) {
    for (float& value : set.group(static_cast<gs::Group>(g))) value = static_cast<float>(random.normal());
  }
  if (count > 0) {
    set.opacities.back() = std::numeric_limits<float>::quiet_NaN();
    set.scales.front() = std::numeric_limits<float>::infinity();
  }
  return set;
}

inline bool sameBits(const std::vector<float>& a, const std::vector<float>& b) {
  return a.size() == b.size() && (a.empty() || std::memcmp(a.data(), b.data(), a.size() * sizeof(float)) == 0);
}

inline bool sameBits(const gs::GaussianSet& a, const gs::GaussianSet& b) {
  bool same = a.count == b.count;
  for (size_t g = 0; g < gs::kGroupCount; ++g) {
    same = same && sameBits(a.group(static_cast<gs::Group>(g)), b.group(static_cast<gs::Group>(g)));
  }
  return same;
}

}  // namespace quor::test
