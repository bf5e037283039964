// Matching on this program's own GPU device, followed by COLMAP's geometric verification.
#include <stdexcept>

#include "base/failures.h"
#include "base/text/text.h"
#include "sfm/match/colmap_database.h"
#include "sfm/match/gpu_matcher.h"
#include "sfm/match/pair_selection.h"
#include "sfm/solve_context.h"

namespace quor {
namespace {

// On a software driver the exact comparison of all features loses to COLMAP's approximate search once images have more
// features than this (measured on two cores with AVX2: 4096 features took COLMAP 1.3 times as long, 8192 0.86 times).
constexpr size_t kFeaturesOfEqualSpeed = 6500;

void adviseSoftwareDevice(const SolveContext& solve) {
  const std::vector<DatabaseImage> images = ColmapDatabase(solve.files.database).images();
  if (solve.gpu->info().deviceType != VK_PHYSICAL_DEVICE_TYPE_CPU || images.empty()) return;
  size_t features = 0;
  for (const DatabaseImage& image : images) features += image.features;
  features /= images.size();
  if (features <= kFeaturesOfEqualSpeed) return;
  solve.log.info("With " + std::to_string(features) +
                 " features an image COLMAP's own matcher is faster than this software device; --cpu-matching chooses "
                 "it.");
}

// The chosen pairs that are not in the database yet, and those whose matches COLMAP has not verified yet.
struct OpenPairs {
  std::vector<ImagePair> toMatch, toVerify;
};

// Forgets the pairs of an earlier solve that are not chosen now.
OpenPairs openPairs(const SolveContext& solve, const std::vector<ImagePair>& chosen) {
  ColmapDatabase database(solve.files.database);
  const auto known = database.matchedPairs();
  OpenPairs open;
  if (known.empty()) return {chosen, {}};
  database.keepVerifiedPairs({chosen.begin(), chosen.end()});
  for (const ImagePair& pair : chosen) {
    const auto found = known.find(pair);
    if (found == known.end()) {
      open.toMatch.push_back(pair);
    } else if (found->second.matches > 0 && !found->second.verified) {
      open.toVerify.push_back(pair);
    }
  }
  solve.log.info(formatText("The matches of %zu image pairs are those of the earlier solve.",
                            chosen.size() - open.toMatch.size()));
  return open;
}

MatchSummary matchPairs(const SolveContext& solve, const std::vector<ImagePair>& pairs, MatchingShare share) {
  const auto progress = [&](const std::string& message, float fraction) {
    if (fraction <= 0) solve.progress.begin(message, share.begins, share.middle());
    solve.progress.advance(fraction);
  };
  return matchOnGpu(*solve.gpu, solve.files.database, pairs, {}, progress, solve.cancelled);
}

void verifyPairs(const SolveContext& solve, const std::vector<ImagePair>& pairs, MatchingShare share) {
  solve.progress.begin("Verifying matches", share.middle(), share.ends);
  solve.run(pairListStep(solve, writePairList(solve, "gpu_pairs.txt", pairs)), countedFraction);
}

// false when the features are of a kind that only COLMAP can match.
bool matchAndVerify(const SolveContext& solve, Matcher matcher, MatchingShare share) {
  const std::vector<ImagePair> pairs = selectPairs(solve, matcher);
  writePairList(solve, "gpu_pairs.txt", pairs);  // COLMAP must be able to read it, or matching would be in vain
  OpenPairs open = openPairs(solve, pairs);
  if (!open.toMatch.empty()) {
    solve.log.info("Matching " + std::to_string(open.toMatch.size()) + " image pairs on the GPU (Vulkan, " +
                   solve.gpu->info().name + ")");
    adviseSoftwareDevice(solve);
    const MatchSummary summary = matchPairs(solve, open.toMatch, share);
    if (!summary.handedBack.empty()) {
      solve.log.info(summary.handedBack);
      return false;
    }
    solve.log.info(describe(summary));
    open.toVerify.insert(open.toVerify.end(), summary.matched.begin(), summary.matched.end());
  }
  if (!open.toVerify.empty()) verifyPairs(solve, open.toVerify, share);
  if (ColmapDatabase(solve.files.database).verifiedPairs() == 0) {
    throw std::runtime_error("no image pair shared enough features to verify");
  }
  return true;
}

}  // namespace

bool canMatchOnGpu(const SolveContext& solve, Matcher matcher) {
  const SparseSettings& settings = solve.project.sparse;
  const bool detectsLoops = !settings.vocabTreePath.empty();
  const bool known = matcher == Matcher::Exhaustive || (matcher == Matcher::Sequential && !detectsLoops);
  return solve.gpu && settings.gpuMatching && known;
}

bool matchFeaturesOnGpu(const SolveContext& solve, Matcher matcher, MatchingShare share) {
  if (!canMatchOnGpu(solve, matcher)) return false;
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
