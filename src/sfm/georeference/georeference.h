// The frame that a solved model is moved into. COLMAP's own has any direction and any scale; scenes are to stand
// upright and, where the photographs know their places on the Earth, to lie in metres.
#pragma once

#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "colmap/model.h"
#include "project/georeference.h"
#include "sfm/georeference/similarity.h"

namespace quor {

struct WorldFrame {
  Similarity worldFromSolve;                 // z points up, unless nothing says where up is
  std::optional<Georeference> georeference;  // when the frame is in metres about an origin on the Earth
  std::vector<std::string> messages;         // for the log: how the frame was found, and why it is no better
};

// From the positions of at least four of the images, by name, that lie apart in two directions and agree with the
// solved cameras well enough; else from the photographs' own up axes, at COLMAP's scale.
WorldFrame findWorldFrame(const std::vector<gs::colmap::Image>& images,
                          const std::map<std::string, GeoPosition>& positions);

// Moves a binary model, all but what only its pixels decide. Throws std::runtime_error.
void moveModel(const std::filesystem::path& dir, const Similarity& worldFromSolve);

}  // namespace quor
