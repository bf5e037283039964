// Placing the cameras: maps, refines, judges, and tries again in other ways while the cameras are not sound.
#pragma once

#include "project/camera_report.h"
#include "sfm/solve_context.h"

namespace quor {

struct PlacedCameras {
  std::filesystem::path folder;  // of the model, in the solve's folder of models
  CameraReport report;
};

// `secondsBefore`: what features and matches took; all attempts together take some three times the first solve's time.
// A fold that no attempt undoes is cut: the longest stretch without a contradiction stays. Throws when the first
// attempt places no image, or Cancelled.
PlacedCameras placeCameras(const SolveContext& solve, const std::vector<ImageGroup>& groups, bool fixedIntrinsics,
                           double secondsBefore);

}  // namespace quor
