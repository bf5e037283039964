// The camera of one registered image as the COLMAP model describes it, checked: a model is somebody else's file.
#pragma once

#include "colmap/model.h"
#include "gs/data/undistort.h"
#include "gs/render/camera.h"

namespace quor::gs {

struct SourceCamera {
  Camera camera;  // of the size that the model gives
  Distortion distortion;
};

// Whether float arithmetic can be done with a position or a translation: damaged files also hold numbers that are
// finite but whose squares are not.
bool isCoordinate(double value);

// Throws std::runtime_error with a sentence that names the image or the camera: a camera that is missing, of a model
// that cannot be trained on or with values that are none, a pose that is none.
SourceCamera sourceCamera(const colmap::Model& model, const colmap::Image& image);

}  // namespace quor::gs
