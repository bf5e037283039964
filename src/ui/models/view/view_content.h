// The parts of the viewport's picture that come from a solved dataset: where the photographs were taken and the points
// that the solve has found. Reading takes a while: for a worker thread.
#pragma once

#include <array>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "gs/data/dataset.h"
#include "gs/data/source_camera.h"
#include "gs/splats/gaussian_set.h"

namespace quor::ui {

struct PosedPhoto {
  std::string name;
  gs::SourceCamera source;
};

struct CameraSet {
  std::filesystem::path images;    // folder
  std::vector<PosedPhoto> photos;  // in name order
  gs::SceneGeometry geometry;
  std::shared_ptr<const gs::GaussianSet> points;  // a small splat for each sparse point; null when there are none
  // Photographs, by index, that the camera report names as placed apart against their matches; and the two that the
  // fewest points hold together.
  std::vector<std::array<size_t, 2>> jumps;
  std::optional<std::array<size_t, 2>> weakestLink;
  double viewDistance = 1;  // typical distance from a camera to the surface it sees, world units
};

// Throws std::runtime_error with a whole sentence.
CameraSet loadCameras(const std::filesystem::path& dataset);

// Of a .ply or a .quor file. Throws std::runtime_error.
std::shared_ptr<const gs::GaussianSet> loadScene(const std::filesystem::path& file);

// Where most of a scene's splats are: the middle of their middle, and a radius that holds four fifths of them.
struct Ball {
  std::array<double, 3> centre = {0, 0, 0};
  double radius = 1;
};
Ball ballOf(const gs::GaussianSet& set);

}  // namespace quor::ui
