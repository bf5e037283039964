// The two encodings of a sparse model; loadModel chooses between them. Every reader throws std::runtime_error.
#pragma once

#include <filesystem>
#include <fstream>
#include <optional>
#include <string_view>
#include <unordered_map>

#include "colmap/model.h"
#include "colmap/observations.h"

namespace quor::gs::colmap {

struct CameraModel {
  std::string_view name;
  size_t paramCount;
  bool oneFocal;  // f, cx, cy, ... rather than fx, fy, cx, cy, ...
};

const CameraModel* cameraModel(int32_t id);                   // null for any other id
std::optional<int32_t> cameraModelId(std::string_view name);  // exact, case-sensitive

std::map<uint32_t, Camera> readCamerasBinary(const std::filesystem::path& path);
std::vector<Image> readImagesBinary(const std::filesystem::path& path);
Points readPointsBinary(const std::filesystem::path& path);
std::vector<uint64_t> readPointIdsBinary(const std::filesystem::path& path);  // in the file's order
// By image id. `points` turns ids into indices; an id that it does not hold is damage.
std::map<uint32_t, Observations> readObservationsBinary(const std::filesystem::path& path,
                                                        const std::unordered_map<uint64_t, size_t>& points);

std::map<uint32_t, Camera> readCamerasText(const std::filesystem::path& path);
std::vector<Image> readImagesText(const std::filesystem::path& path);
Points readPointsText(const std::filesystem::path& path);

// The mean of the known reprojection errors; COLMAP writes -1 for an unknown one.
class ErrorMean {
 public:
  void add(double error) {
    if (!(error >= 0)) return;
    sum_ += error;
    ++count_;
  }
  double value() const { return count_ == 0 ? -1 : sum_ / static_cast<double>(count_); }

 private:
  double sum_ = 0;
  size_t count_ = 0;
};

// Throws "Cannot open PATH".
std::ifstream openModelFile(const std::filesystem::path& path);

}  // namespace quor::gs::colmap
