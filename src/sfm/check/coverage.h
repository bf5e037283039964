// From which sides the cameras of a solve look at the scene, and from which none does.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "base/image/image.h"
#include "colmap/model.h"
#include "project/camera_report.h"

namespace quor {

struct Coverage {
  // Where an image was taken, seen from the scene's middle. The images' own upright sides say where up is.
  struct Place {
    std::string image;
    double azimuth = 0;    // degrees, counterclockwise from above, [0, 360)
    double elevation = 0;  // degrees above the horizon
  };
  std::vector<Place> places;            // by azimuth
  double degrees = 0;                   // around the scene, in sectors of 30 degrees
  std::vector<CameraReport::Gap> gaps;  // of more than 30 degrees
};

// Nothing for fewer than 6 images, and where they do not look inwards: a room has no sides.
std::optional<Coverage> coverageOf(const gs::colmap::Model& model);

// The scene from above: straight up is the middle, the horizon the circle, straight down the rim. Covered sectors are
// green and others red, images are dots; the first by name is larger.
Image drawCoverage(const Coverage& coverage);

}  // namespace quor
