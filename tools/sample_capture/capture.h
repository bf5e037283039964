// The truth about pictures of a Scene as a COLMAP model: the cameras that took them and points on the surfaces that
// they show.
#pragma once

#include <string>
#include <vector>

#include "colmap/model_writer.h"
#include "sample_capture/orbit.h"
#include "sample_capture/render.h"

namespace quor::sample {

struct TrueModel {
  gs::colmap::Model model;                             // image ids 1, 2, ... in the order of the views
  std::vector<gs::colmap::Observations> observations;  // one list a view
};

// The name of a photograph in the capture: "photo_0001.jpg" for view 0.
std::string photoName(size_t view);
// The name that frame extraction gives to a frame when it takes every one: "f00001.jpg" for view 0.
std::string frameName(size_t view);

// One PINHOLE camera for all views, which have one size and one focal length, and `points` points, each seen by at
// least two views, with their true colours and true observations. Throws std::runtime_error when the views do not see
// enough of the room together.
TrueModel trueModel(const Scene& scene, const std::vector<PinholeView>& views, size_t points, uint64_t seed,
                    std::string (*name)(size_t) = photoName);

}  // namespace quor::sample
