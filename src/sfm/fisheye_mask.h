// The mask that hides parts of every fisheye lens from feature extraction: what lies outside the image circle, its rim,
// and the ground with whoever carries the camera. The pictures themselves stay as they are.
#pragma once

#include <string>

#include "base/image.h"
#include "project/project.h"

namespace quor {

// A square mask for one lens: white where features may be found, black elsewhere. The lens is equidistant, fills its
// square and looks at the horizon, the camera being upright (r = f * theta, as fisheyeCamera() seeds it).
Image fisheyeMask(const IngestSettings& settings, int lensSize);

// What it hides, with the share of the image circle.
std::string describeFisheyeMask(const IngestSettings& settings, const Image& mask);

}  // namespace quor
