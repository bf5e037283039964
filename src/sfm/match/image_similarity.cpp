#include "sfm/match/image_similarity.h"

#include <algorithm>
#include <cmath>
#include <numeric>

#include "base/parallel.h"
#include "base/split_mix64.h"

namespace quor {
namespace {

constexpr size_t kDimension = ImageSimilarity::kDescriptor;
constexpr size_t kWords = 64;
constexpr size_t kVectorLength = kWords * kDimension;
constexpr size_t kTrainingFeatures = 256 * kWords;  // that the vocabulary is made of
constexpr size_t kRounds = 8;
constexpr size_t kFeaturesOfAnImage = 2000;  // of those that there are, evenly

using Floats = std::vector<float>;

float squaredDistance(const float* a, const float* b) {
  float sum = 0;
  for (size_t i = 0; i < kDimension; ++i) sum += (a[i] - b[i]) * (a[i] - b[i]);
  return sum;
}

size_t nearestWord(const float* feature, const Floats& words) {
  size_t best = 0;
  float least = squaredDistance(feature, words.data());
  for (size_t w = 1; w < kWords; ++w) {
    const float distance = squaredDistance(feature, words.data() + w * kDimension);
    if (distance >= least) continue;
    least = distance;
    best = w;
  }
  return best;
}

// At most `most` of the features, evenly.
Floats sample(const std::vector<uint8_t>& bytes, size_t most) {
  const size_t count = bytes.size() / kDimension, taken = std::min(count, most);
  Floats features(taken * kDimension);
  for (size_t i = 0; i < taken; ++i) {
    const uint8_t* from = bytes.data() + i * count / taken * kDimension;
    std::copy(from, from + kDimension, features.begin() + static_cast<std::ptrdiff_t>(i * kDimension));
  }
  return features;
}

// Lloyd's algorithm from features drawn at random.
Floats vocabulary(const Floats& features) {
  const size_t count = features.size() / kDimension;
  SplitMix64 random(1);
  Floats words(kVectorLength);
  for (size_t w = 0; w < kWords; ++w) {
    const float* from = features.data() + random.next() % count * kDimension;
    std::copy(from, from + kDimension, words.begin() + static_cast<std::ptrdiff_t>(w * kDimension));
  }
  std::vector<size_t> nearest(count);
  for (size_t round = 0; round < kRounds; ++round) {
    constexpr size_t kBlock = 512;
    parallelFor((count + kBlock - 1) / kBlock, [&](size_t block) {
      for (size_t i = block * kBlock; i < std::min(count, (block + 1) * kBlock); ++i) {
        nearest[i] = nearestWord(features.data() + i * kDimension, words);
      }
    });
    Floats sums(kVectorLength);
    std::vector<size_t> members(kWords);
    for (size_t i = 0; i < count; ++i) {
      ++members[nearest[i]];
      for (size_t d = 0; d < kDimension; ++d) sums[nearest[i] * kDimension + d] += features[i * kDimension + d];
    }
    for (size_t w = 0; w < kWords; ++w) {
      if (members[w] == 0) continue;  // stays where it is
      for (size_t d = 0; d < kDimension; ++d) {
        words[w * kDimension + d] = sums[w * kDimension + d] / static_cast<float>(members[w]);
      }
    }
  }
  return words;
}

void normalise(std::span<float> vector) {
  const float length = std::sqrt(std::inner_product(vector.begin(), vector.end(), vector.begin(), 0.0f));
  if (length == 0) return;
  for (float& value : vector) value /= length;
}

void aggregate(const Floats& features, const Floats& words, std::span<float> vector) {
  for (size_t i = 0; i < features.size(); i += kDimension) {
    const size_t word = nearestWord(features.data() + i, words);
    for (size_t d = 0; d < kDimension; ++d) {
      vector[word * kDimension + d] += features[i + d] - words[word * kDimension + d];
    }
  }
  for (size_t w = 0; w < kWords; ++w) normalise(vector.subspan(w * kDimension, kDimension));
  normalise(vector);
}

}  // namespace

ImageSimilarity::ImageSimilarity(size_t images, const std::function<std::vector<uint8_t>(size_t)>& descriptors)
    : images_(images), vectors_(images * kVectorLength) {
  if (images == 0) return;
  std::vector<Floats> samples(images);
  const size_t each = (kTrainingFeatures + images - 1) / images;
  parallelFor(images, [&](size_t i) { samples[i] = sample(descriptors(i), each); });
  Floats training;
  for (const Floats& features : samples) training.insert(training.end(), features.begin(), features.end());
  if (training.empty()) return;
  const Floats words = vocabulary(training);
  parallelFor(images, [&](size_t i) {
    const std::span<float> vector(vectors_.data() + i * kVectorLength, kVectorLength);
    aggregate(sample(descriptors(i), kFeaturesOfAnImage), words, vector);
  });
}

float ImageSimilarity::between(size_t a, size_t b) const {
  const float *first = vectors_.data() + a * kVectorLength, *second = vectors_.data() + b * kVectorLength;
  float sum = 0;
  for (size_t i = 0; i < kVectorLength; ++i) sum += first[i] * second[i];
  return sum;
}

std::vector<size_t> ImageSimilarity::mostAlike(size_t image, size_t count) const {
  std::vector<std::pair<float, size_t>> others;
  for (size_t i = 0; i < images_; ++i) {
    if (i != image) others.emplace_back(-between(image, i), i);
  }
  count = std::min(count, others.size());
  std::ranges::partial_sort(others, others.begin() + static_cast<std::ptrdiff_t>(count));
  std::vector<size_t> alike;
  for (size_t i = 0; i < count; ++i) alike.push_back(others[i].second);
  return alike;
}

}  // namespace quor
