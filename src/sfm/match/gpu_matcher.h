// Matches the features in COLMAP's database on the GPU and writes the raw matches back, for COLMAP to verify.
#pragma once

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "gpu/compute/kernel_registry.h"
#include "gpu/device/vulkan_context.h"
#include "sfm/match/image_pairs.h"
#include "sfm/match/sift_matcher.h"

namespace quor {

struct MatchSummary {
  size_t pairs = 0;
  size_t matches = 0;
  double seconds = 0;
  std::vector<ImagePair> matched;  // the pairs with at least one match
  std::string handedBack;          // why COLMAP has to match instead, a sentence; empty when the matches are written
};

// Fraction 0..1 of the matching; a fraction of 0 begins what the message names.
using MatchProgress = std::function<void(const std::string& message, float fraction)>;

// Every pair gets a row of matches, if need be an empty one, so that COLMAP does not match it again. All rows are
// written or none: throws std::runtime_error, "Cancelled" too, and leaves the database as it was.
// `cancelled` is asked from the calling thread, between pieces of work of about a tenth of a second.
MatchSummary matchOnGpu(gs::VulkanContext& context, const std::filesystem::path& databasePath,
                        const std::vector<ImagePair>& pairs, const SiftMatchOptions& options,
                        const MatchProgress& progress, const std::function<bool()>& cancelled);

// "GPU matching: 120 pairs in 1.5 s (98 with matches, 31415 matches)"
std::string describe(const MatchSummary& summary);

}  // namespace quor
