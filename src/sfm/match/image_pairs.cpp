#include "sfm/match/image_pairs.h"

#include <algorithm>
#include <set>

namespace quor {
namespace {

ImagePair pairOf(const DatabaseImage& a, const DatabaseImage& b) {
  return std::minmax(a.id, b.id);
}

}  // namespace

std::vector<ImagePair> exhaustivePairs(const std::vector<DatabaseImage>& images) {
  std::vector<ImagePair> pairs;
  for (size_t i = 0; i < images.size(); ++i) {
    for (size_t j = i + 1; j < images.size(); ++j) pairs.push_back(pairOf(images[i], images[j]));
  }
  return pairs;
}

std::vector<ImagePair> sequentialPairs(std::vector<DatabaseImage> images, size_t overlap) {
  std::sort(images.begin(), images.end(), [](const auto& a, const auto& b) { return a.name < b.name; });
  std::set<size_t> steps;
  for (size_t k = 0; k < std::min(overlap, images.size()); ++k) {
    if (k > 0) steps.insert(k);
    if (k < 32) steps.insert(size_t{1} << k);
  }
  std::vector<ImagePair> pairs;
  for (size_t i = 0; i < images.size(); ++i) {
    for (const size_t step : steps) {
      if (i + step < images.size()) pairs.push_back(pairOf(images[i], images[i + step]));
    }
  }
  return pairs;
}

}  // namespace quor
