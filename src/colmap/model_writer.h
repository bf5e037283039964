// Writes a sparse model in COLMAP's published file formats, so that COLMAP and loadModel() can read it.
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
using Observations = std::vector<Observation>;  // of one image

enum class Encoding { Binary, Text };

// Makes `dir` and writes cameras, images and points3D into it; each file appears whole or not at all. `observations`
// holds one list for each of model.images in their order, or nothing at all; the tracks of the points follow from it.
// Points get the ids 1, 2, ... and no reprojection error (COLMAP's -1). Throws std::runtime_error when a file cannot be
// written, std::logic_error when the observations do not fit the model.
void writeModel(const std::filesystem::path& dir, const Model& model, const std::vector<Observations>& observations,
                Encoding encoding);

}  // namespace quor::gs::colmap
