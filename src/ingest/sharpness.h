// Blur rejection: frames of a video that are much less sharp than the others are left out of the camera solve and of
// training.
#pragma once

#include <filesystem>
#include <functional>
#include <optional>
#include <vector>

namespace quor {

struct SharpnessResult {
  std::vector<std::filesystem::path> kept;      // in the order given
  std::vector<std::filesystem::path> rejected;  // in the order given
  double median = 0;                            // of the readable frames; 0 without any
};

// Variance of the 4-neighbour Laplacian of the grey image (0..255), the image first shrunk to at most 512 pixels in
// width. 0 for an image without interior pixels, nothing for a file that cannot be read.
std::optional<double> scoreSharpness(const std::filesystem::path& path);

// Of a grey image, row by row.
double laplacianVariance(const std::vector<float>& grey, int width, int height);

// Rejects frames that score below `threshold` times the median, the least sharp first, at most `maxRejectFraction` of
// all frames. Frames that cannot be read are kept. `progress` (frames scored of all) is called on the calling thread
// and may throw: scoring then stops, and the exception comes out here.
SharpnessResult rejectBlurry(const std::vector<std::filesystem::path>& paths, double threshold,
                             double maxRejectFraction, const std::function<void(size_t scored)>& progress);

}  // namespace quor
