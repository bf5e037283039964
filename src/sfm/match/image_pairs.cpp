#include "sfm/match/image_pairs.h"

#include <algorithm>

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

std::set<size_t> sequenceSteps(size_t near, size_t powers) {
  std::set<size_t> steps;
  for (size_t step = 1; step <= near; ++step) steps.insert(step);
  for (size_t k = 0; k < std::min<size_t>(powers, 32); ++k) steps.insert(size_t{1} << k);
  return steps;
}

std::vector<ImagePair> sequentialPairs(std::vector<DatabaseImage> images, size_t overlap) {
  std::sort(images.begin(), images.end(), [](const auto& a, const auto& b) { return a.name < b.name; });
  const size_t reach = std::min(overlap, images.size());
  const std::set<size_t> steps = sequenceSteps(reach - std::min<size_t>(reach, 1), reach);
  std::vector<ImagePair> pairs;
  for (size_t i = 0; i < images.size(); ++i) {
    for (const size_t step : steps) {
      if (i + step < images.size()) pairs.push_back(pairOf(images[i], images[i + step]));
    }
  }
  return pairs;
}

}  // namespace quor
