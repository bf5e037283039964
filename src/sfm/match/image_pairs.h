// Which images are matched with which: the choices of COLMAP's exhaustive and sequential matchers.
#pragma once

#include <cstddef>
#include <cstdint>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace quor {

// An image of COLMAP's database.
struct DatabaseImage {
  uint32_t id = 0;
  std::string name;
  uint32_t features = 0;
};

// Two image ids, the smaller first.
using ImagePair = std::pair<uint32_t, uint32_t>;

// Every two images once.
std::vector<ImagePair> exhaustivePairs(const std::vector<DatabaseImage>& images);

// How far apart the images of a sequence are that are matched: 1 to near, and 1, 2, 4, ..., 2^(powers - 1).
std::set<size_t> sequenceSteps(size_t near, size_t powers);

// Each image, in the order of their names, with those up to overlap - 1 places on and those 1, 2, 4, ...,
// 2^(overlap - 1) places on.
std::vector<ImagePair> sequentialPairs(std::vector<DatabaseImage> images, size_t overlap);

}  // namespace quor
