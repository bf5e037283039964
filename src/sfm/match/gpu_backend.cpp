// Matching on this program's own GPU device, followed by COLMAP's geometric verification.
#include <algorithm>
#include <cctype>
#include <stdexcept>
#include <unordered_map>

#include "base/failures.h"
#include "base/files/atomic_file.h"
#include "base/files/paths.h"
#include "sfm/match/colmap_database.h"
#include "sfm/match/gpu_matcher.h"
#include "sfm/solve_context.h"

namespace quor {
namespace {

std::vector<ImagePair> choosePairs(const SolveContext& solve, Matcher matcher,
                                   const std::vector<DatabaseImage>& images) {
  if (matcher == Matcher::Exhaustive) return exhaustivePairs(images);
  return sequentialPairs(images, static_cast<size_t>(std::max(solve.project.sparse.sequentialOverlap, 1)));
}

// COLMAP separates the two names of a line by a blank and takes a number sign for a comment.
void requireListable(const std::vector<DatabaseImage>& images) {
  for (const DatabaseImage& image : images) {
    const auto blank = [](unsigned char c) { return std::isspace(c) != 0; };
    if (image.name.starts_with('#') || std::any_of(image.name.begin(), image.name.end(), blank)) {
      throw std::runtime_error("COLMAP cannot read the image name '" + image.name + "' in a list of pairs");
    }
  }
}

// On a software driver the exact comparison of all features loses to COLMAP's approximate search once images have more
// features than this (measured on two cores with AVX2: 4096 features took COLMAP 1.3 times as long, 8192 0.86 times).
constexpr size_t kFeaturesOfEqualSpeed = 6500;

void adviseSoftwareDevice(const SolveContext& solve, const std::vector<DatabaseImage>& images) {
  if (solve.gpu->info().deviceType != VK_PHYSICAL_DEVICE_TYPE_CPU || images.empty()) return;
  size_t features = 0;
  for (const DatabaseImage& image : images) features += image.features;
  features /= images.size();
  if (features <= kFeaturesOfEqualSpeed) return;
  solve.log.info("With " + std::to_string(features) +
                 " features an image COLMAP's own matcher is faster than this software device; --cpu-matching chooses "
                 "it.");
}

MatchSummary matchPairs(const SolveContext& solve, const std::vector<ImagePair>& pairs, MatchingShare share) {
  std::string shown;
  const auto progress = [&](const std::string& message, float fraction) {
    if (message != shown) solve.progress.begin(message, share.begins, share.middle());
    shown = message;
    solve.progress.advance(fraction);
  };
  return matchOnGpu(*solve.gpu, solve.files.database, pairs, {}, progress, solve.cancelled);
}

void verifyPairs(const SolveContext& solve, const std::vector<ImagePair>& pairs,
                 const std::vector<DatabaseImage>& images, MatchingShare share) {
  std::unordered_map<uint32_t, std::string> names;
  for (const DatabaseImage& image : images) names[image.id] = image.name;
  const std::filesystem::path list = solve.files.lists / "gpu_pairs.txt";
  AtomicFile file(list);
  for (const ImagePair& pair : pairs) file.stream() << names[pair.first] << ' ' << names[pair.second] << '\n';
  file.commit();

  ColmapStep step;
  step.command = "matches_importer";
  step.arguments = {
      "--database_path", toUtf8(solve.files.database), "--match_list_path", toUtf8(list), "--match_type", "pairs"};
  addGpuOption(step, solve.colmap, {"FeatureMatching.use_gpu", "SiftMatching.use_gpu"}, solve.project.sparse.useGPU);
  addTuning(step, solve);
  solve.progress.begin("Verifying matches", share.middle(), share.ends);
  solve.run(step, countedFraction);
}

// false when the features are of a kind that only COLMAP can match.
bool matchAndVerify(const SolveContext& solve, Matcher matcher, MatchingShare share) {
  const std::vector<DatabaseImage> images = ColmapDatabase(solve.files.database).images();
  requireListable(images);
  const std::vector<ImagePair> pairs = choosePairs(solve, matcher, images);
  solve.log.info("Matching " + std::to_string(pairs.size()) + " image pairs on the GPU (Vulkan, " +
                 solve.gpu->info().name + ")");
  adviseSoftwareDevice(solve, images);
  const MatchSummary summary = matchPairs(solve, pairs, share);
  if (!summary.handedBack.empty()) {
    solve.log.info(summary.handedBack);
    return false;
  }
  solve.log.info(describe(summary));
  if (!summary.matched.empty()) verifyPairs(solve, summary.matched, images, share);
  if (ColmapDatabase(solve.files.database).verifiedPairs() == 0) {
    throw std::runtime_error("no image pair shared enough features to verify");
  }
  return true;
}

}  // namespace

bool matchFeaturesOnGpu(const SolveContext& solve, Matcher matcher, MatchingShare share) {
  const SparseSettings& settings = solve.project.sparse;
  const bool detectsLoops = !settings.vocabTreePath.empty();
  const bool known = matcher == Matcher::Exhaustive || (matcher == Matcher::Sequential && !detectsLoops);
  if (!solve.gpu || !settings.gpuMatching || !known) return false;
  try {
    const bool matched = matchAndVerify(solve, matcher, share);
    if (solve.cancelled && solve.cancelled()) throw Cancelled();  // COLMAP may have ended before it was asked to
    if (matched) return true;
  } catch (const Cancelled&) {
    throw;
  } catch (const std::exception& e) {
    if (solve.cancelled && solve.cancelled()) throw Cancelled();
    solve.log.warning("GPU matching was not possible (" + std::string(e.what()) + ") — COLMAP matches instead.");
  }
  ColmapDatabase(solve.files.database).clearMatches();
  return false;
}

}  // namespace quor
