// How alike images are by the descriptors of their features, without matching them: to find, among hundreds of images,
// those worth matching.
#pragma once

#include <functional>
#include <span>
#include <vector>

#include "sfm/match/colmap_database.h"

namespace quor {

// A vector of locally aggregated descriptors (Jegou et al. 2010) with each of its words brought to equal length
// (Arandjelovic and Zisserman 2013): what an image's features deviate from the words of a small vocabulary, summed up
// by word. The vocabulary is made of the images themselves.
class ImageSimilarity {
 public:
  static constexpr size_t kDescriptor = 128;  // bytes

  // Each image's descriptors, `kDescriptor` bytes a feature; descriptors(i) is called from several threads and at most
  // twice an image. It may give a part of them only.
  ImageSimilarity(size_t images, const std::function<std::vector<uint8_t>(size_t)>& descriptors);

  // -1 to 1; 0 for an image without features.
  float between(size_t a, size_t b) const;
  // The other images, most alike first.
  std::vector<size_t> mostAlike(size_t image, size_t count) const;

 private:
  size_t images_ = 0;
  std::vector<float> vectors_;  // of unit length, one an image
};

}  // namespace quor
