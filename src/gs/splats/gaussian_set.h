// All splats of a scene on the host: what the trainer optimises, what the files hold, what the GPU buffers are filled
// from. Arrays are contiguous floats in splat order; scales and opacities stand in their unconstrained forms.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace quor::gs {

// The six parameter groups in the order in which files and optimiser hold them, and the floats each has per splat.
enum Group : size_t { kPositions, kScales, kRotations, kOpacities, kShDc, kShRest, kGroupCount };
inline constexpr std::array<size_t, kGroupCount> kGroupWidths = {3, 3, 4, 1, 3, 45};
inline constexpr size_t kFloatsPerSplat = 59;

// One array a group.
using GroupArrays = std::array<std::vector<float>, kGroupCount>;

struct GaussianSet {
  uint64_t count = 0;
  std::vector<float> positions;  // 3: world x, y, z
  std::vector<float> scales;     // 3: ln of the standard deviation along the local axes
  std::vector<float> rotations;  // 4: quaternion w, x, y, z
  std::vector<float> opacities;  // 1: logit
  std::vector<float> shDc;       // 3: R, G, B
  std::vector<float> shRest;     // 45: coefficient k of channel c at k * 3 + c, zero above shDegree
  int32_t shDegree = 3;

  void resize(uint64_t n);  // zero-filled where it grows
  std::vector<float>& group(Group g);
  const std::vector<float>& group(Group g) const;
};

}  // namespace quor::gs
