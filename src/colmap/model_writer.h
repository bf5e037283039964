// Writes a sparse model in COLMAP's published file formats, so that COLMAP and loadModel() can read it.
#pragma once

#include <filesystem>
#include <vector>

#include "colmap/model.h"
#include "colmap/observations.h"

namespace quor::gs::colmap {

enum class Encoding { Binary, Text };

// Makes `dir` and writes cameras, images and points3D into it; each file appears whole or not at all; rigs.bin and
// frames.bin of an earlier model go. `observations` holds one list for each of model.images in their order, or nothing
// at all; the tracks of the points follow from it. Points get the ids 1, 2, ... and the reprojection errors given, or
// COLMAP's -1 where the list of errors is empty. Throws std::runtime_error when a file cannot be written,
// std::logic_error when the observations do not fit the model.
void writeModel(const std::filesystem::path& dir, const Model& model, const std::vector<Observations>& observations,
                Encoding encoding);

}  // namespace quor::gs::colmap
