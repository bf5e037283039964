#include "sfm/match/gpu_matcher.h"

#include <chrono>
#include <stdexcept>
#include <unordered_map>

#include "base/failures.h"
#include "base/text/text.h"
#include "sfm/match/colmap_database.h"
#include "sfm/match/matching_kernels.h"

namespace quor {
namespace {

// Why the image's features cannot be matched here; nothing when they can.
std::string refusal(const DatabaseImage& image, const ColmapDatabase::Descriptors& found) {
  const size_t bytes = found.data.size();
  if (image.features == 0 && bytes == 0) return {};
  if (found.columns == 128 && found.rows == image.features && bytes == image.features * SiftMatcher::kDescriptorBytes) {
    return {};
  }
  return formatText(
      "The features are not 128-byte SIFT descriptors (%lld columns, %zu bytes for %s), so COLMAP matches "
      "them itself.",
      static_cast<long long>(found.columns), bytes, withoutControls(image.name).c_str());
}

std::vector<uint32_t> countsOf(const std::vector<DatabaseImage>& images) {
  std::vector<uint32_t> counts;
  counts.reserve(images.size());
  for (const DatabaseImage& image : images) counts.push_back(image.features);
  return counts;
}

std::vector<SiftMatcher::Pair> placesOf(const std::vector<ImagePair>& pairs, const std::vector<DatabaseImage>& images) {
  std::unordered_map<uint32_t, uint32_t> places;
  for (uint32_t i = 0; i < images.size(); ++i) places[images[i].id] = i;
  std::vector<SiftMatcher::Pair> found;
  found.reserve(pairs.size());
  for (const ImagePair& pair : pairs) found.emplace_back(places.at(pair.first), places.at(pair.second));
  return found;
}

void stopWhen(bool cancelled) {
  if (cancelled) throw Cancelled();
}

}  // namespace

MatchSummary matchOnGpu(gs::VulkanContext& context, const std::filesystem::path& databasePath,
                        const std::vector<ImagePair>& pairs, const SiftMatchOptions& options,
                        const MatchProgress& progress, const std::function<bool()>& cancelled) {
  const auto start = std::chrono::steady_clock::now();
  ColmapDatabase database(databasePath);
  const std::vector<DatabaseImage> images = database.images();

  MatchSummary summary;
  gs::KernelRegistry registry(context, {gs::matchingKernels()});
  SiftMatcher matcher(context, registry, countsOf(images), options, SiftMatcher::kernelFor(context.info()));
  progress("Reading features", 0);
  for (uint32_t i = 0; i < images.size(); ++i) {
    stopWhen(cancelled());
    const ColmapDatabase::Descriptors found = database.descriptors(images[i].id);
    summary.handedBack = refusal(images[i], found);
    if (!summary.handedBack.empty()) return summary;
    matcher.upload(i, found.data);
  }

  const std::vector<SiftMatcher::Pair> places = placesOf(pairs, images);
  const std::vector<SiftMatcher::Chunk> chunks = matcher.plan(places);
  const std::string message = formatText("Matching on the GPU (%zu pairs, %zu chunks)", pairs.size(), chunks.size());
  database.begin();
  for (const SiftMatcher::Chunk& chunk : chunks) {
    stopWhen(cancelled());
    progress(message, static_cast<float>(chunk.first) / static_cast<float>(pairs.size()));
    const auto matches = matcher.match(std::span(places).subspan(chunk.first, chunk.last - chunk.first));
    for (size_t i = 0; i < matches.size(); ++i) {
      const ImagePair& pair = pairs[chunk.first + i];
      database.writeMatches(pair, matches[i]);
      if (!matches[i].empty()) summary.matched.push_back(pair);
      summary.matches += matches[i].size();
    }
  }
  stopWhen(cancelled());
  database.commit();
  summary.pairs = pairs.size();
  summary.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  return summary;
}

std::string describe(const MatchSummary& summary) {
  return formatText("GPU matching: %zu pairs in %.1f s (%zu with matches, %zu matches)", summary.pairs, summary.seconds,
                    summary.matched.size(), summary.matches);
}

}  // namespace quor
