#include "sfm/map/verdict.h"

#include "base/text/text.h"

namespace quor {
namespace {

// Below 2 px splats are sharp; a solve of sharp photographs has 0.3 to 1.
constexpr double kPoorError = 2;
constexpr size_t kFewPointsPerImage = 30;

std::string sizeList(const std::vector<size_t>& sizes) {
  constexpr size_t kMaxListed = 6;
  std::string text;
  for (size_t i = 0; i < sizes.size() && i < kMaxListed; ++i) {
    text += (i == 0 ? "" : ", ") + std::to_string(sizes[i]);
  }
  return sizes.size() > kMaxListed ? text + ", ..." : text;
}

}  // namespace

std::vector<std::string> solveVerdict(const ColmapRunner::Result& result) {
  std::string facts =
      formatText("%zu of %zu images registered, %zu points", result.registered, result.images, result.points);
  if (result.reprojectionError > 0) facts += formatText(", mean reprojection error %.2f px", result.reprojectionError);
  std::vector<std::string> lines = {facts + "."};

  if (result.modelSizes.size() > 1) {
    lines.push_back(
        formatText("COLMAP made %zu separate models (%s images) and only the largest is used: take more "
                   "photos where one part of the scene leads to the next, or try the exhaustive matcher.",
                   result.modelSizes.size(), sizeList(result.modelSizes).c_str()));
  }
  const size_t missing = result.images - result.registered;
  if (10 * missing > result.images && result.modelSizes.size() <= 1) {
    lines.push_back(
        formatText("%zu images could not be placed: neighbouring views should share 60-80%% of what they "
                   "show, in steps to the side rather than turns on the spot, without motion blur.",
                   missing));
  }
  if (result.reprojectionError > kPoorError) {
    lines.push_back(
        "The reprojection error is high: the scene may have moved, frames may be blurred, or another camera "
        "model may fit the lens better.");
  }
  if (result.points < kFewPointsPerImage * result.registered) {
    lines.push_back(
        "There are few points: plain walls, glass and dark places hold nothing to match; get more texture "
        "and light into the frames, or use larger ones.");
  }
  return lines;
}

}  // namespace quor
