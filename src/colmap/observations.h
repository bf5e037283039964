// Where the images of a sparse model show its points: what a check or an adjustment of the cameras needs beside the
// model itself.
#pragma once

#include <filesystem>
#include <limits>
#include <vector>

#include "colmap/model.h"

namespace quor::gs::colmap {

// Where an image shows a point. COLMAP's frame: the centre of the first pixel is (0.5, 0.5).
struct Observation {
  static constexpr size_t kNoPoint = std::numeric_limits<size_t>::max();

  double x = 0, y = 0;      // pixels
  size_t point = kNoPoint;  // index into Model::points, or kNoPoint for a feature that no point belongs to
};
using Observations = std::vector<Observation>;  // of one image, in the order of its features

// The observations of a binary model that loadModel(dir, true) has read: one list for each of model.images, in their
// order. Throws std::runtime_error, also for a model in text.
std::vector<Observations> loadObservations(const std::filesystem::path& dir, const Model& model);

}  // namespace quor::gs::colmap
