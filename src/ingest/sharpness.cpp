#include "ingest/sharpness.h"

#include <algorithm>
#include <atomic>
#include <cmath>

#include "base/image/image.h"
#include "base/parallel.h"

namespace quor {
namespace {

constexpr int kScoredWidth = 512;
constexpr size_t kMaxWorkers = 8;  // more only make the disk seek

std::vector<float> greyOf(const Image& image) {
  std::vector<float> grey(static_cast<size_t>(image.width) * static_cast<size_t>(image.height));
  for (size_t i = 0; i < grey.size(); ++i) {
    const uint8_t* rgb = &image.rgb[3 * i];
    grey[i] = 0.299f * rgb[0] + 0.587f * rgb[1] + 0.114f * rgb[2];
  }
  return grey;
}

// -1 for frames that cannot be read.
std::vector<double> scoreAll(const std::vector<std::filesystem::path>& paths,
                             const std::function<void(size_t scored)>& progress) {
  std::vector<double> scores(paths.size(), -1.0);
  std::atomic<size_t> next = 0;
  std::atomic<size_t> scored = 0;
  const auto scoreNext = [&] {
    const size_t i = next++;
    if (i >= paths.size()) return false;
    scores[i] = scoreSharpness(paths[i]).value_or(-1.0);
    ++scored;
    return true;
  };
  const size_t workers = std::min(processorCount(kMaxWorkers), std::max<size_t>(paths.size(), 1));
  std::vector<std::jthread> helpers = startThreads(workers - 1, [&] {
    while (scoreNext()) continue;
  });
  try {
    while (scoreNext()) {
      if (progress) progress(scored);
    }
  } catch (...) {
    next = paths.size();  // the helpers, joined on the way out, find nothing more to do
    throw;
  }
  helpers.clear();
  return scores;
}

}  // namespace

double laplacianVariance(const std::vector<float>& grey, int width, int height) {
  if (width < 3 || height < 3) return 0;
  const size_t stride = static_cast<size_t>(width);
  double sum = 0, squares = 0;
  for (size_t y = 1; y + 1 < static_cast<size_t>(height); ++y) {
    for (size_t x = 1; x + 1 < stride; ++x) {
      const float* g = &grey[y * stride + x];
      const double laplacian = 4 * g[0] - g[-1] - g[1] - *(g - stride) - g[stride];
      sum += laplacian;
      squares += laplacian * laplacian;
    }
  }
  const double count = static_cast<double>(width - 2) * (height - 2);
  const double mean = sum / count;
  return squares / count - mean * mean;
}

std::optional<double> scoreSharpness(const std::filesystem::path& path) {
  try {
    Image image = readImage(path);
    if (image.width > kScoredWidth) {
      const int height = static_cast<int>(std::lround(static_cast<double>(kScoredWidth) * image.height / image.width));
      image = resizeImage(image, kScoredWidth, std::max(1, height));
    }
    return laplacianVariance(greyOf(image), image.width, image.height);
  } catch (const std::exception&) {
    return std::nullopt;
  }
}

SharpnessResult rejectBlurry(const std::vector<std::filesystem::path>& paths, double threshold,
                             double maxRejectFraction, const std::function<void(size_t scored)>& progress) {
  const std::vector<double> scores = scoreAll(paths, progress);
  SharpnessResult result;
  std::vector<double> sorted;
  std::copy_if(scores.begin(), scores.end(), std::back_inserter(sorted), [](double score) { return score >= 0; });
  if (sorted.empty()) {
    result.kept = paths;
    return result;
  }
  std::sort(sorted.begin(), sorted.end());
  result.median = sorted[sorted.size() / 2];

  std::vector<size_t> candidates;
  for (size_t i = 0; i < scores.size(); ++i) {
    if (scores[i] >= 0 && scores[i] < result.median * threshold) candidates.push_back(i);
  }
  std::stable_sort(candidates.begin(), candidates.end(), [&](size_t a, size_t b) { return scores[a] < scores[b]; });
  // The small addition keeps 0.4 * 10 from becoming 3.
  const double most = std::floor(static_cast<double>(paths.size()) * maxRejectFraction + 1e-9);
  candidates.resize(std::min(candidates.size(), static_cast<size_t>(std::max(0.0, most))));

  std::vector<bool> rejected(paths.size(), false);
  for (const size_t i : candidates) rejected[i] = true;
  for (size_t i = 0; i < paths.size(); ++i) (rejected[i] ? result.rejected : result.kept).push_back(paths[i]);
  return result;
}

}  // namespace quor
