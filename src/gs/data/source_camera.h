// The camera of one registered image as the COLMAP model describes it, validated, since the model comes from another
// program.
#pragma once

#include "colmap/model.h"
#include "gs/data/undistort.h"
#include "gs/render/camera.h"

namespace quor::gs {

struct SourceCamera {
  Camera camera;  // of the size that the model gives
  Distortion distortion;
};

// Whether float arithmetic works on a position or a translation: damaged files also hold finite numbers whose squares
// overflow.
bool isCoordinate(double value);

// Throws std::runtime_error with a sentence that names the image or the camera: a missing camera, a camera model that
// cannot be trained on, invalid values or an invalid pose.
SourceCamera sourceCamera(const colmap::Model& model, const colmap::Image& image);

}  // namespace quor::gs
