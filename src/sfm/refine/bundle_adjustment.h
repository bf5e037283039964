// Bundle adjustment of a model whose images are mounted on rigs: the poses of moments and sensors, the cameras and the
// points that make the squared reprojection errors least, robustly (Triggs et al., "Bundle Adjustment - A Modern
// Synthesis", 1999). Images of one moment stay exactly rigid.
#pragma once

#include <functional>
#include <vector>

#include "colmap/observations.h"
#include "sfm/refine/rig.h"

namespace quor::refine {

struct RigidModel {
  gs::colmap::Model model;
  std::vector<gs::colmap::Observations> observations;  // one list for each of model.images
  std::vector<Mount> mounts;                           // likewise
  std::vector<Pose> moments;                           // world to rig
  std::vector<Pose> sensors;                           // rig to camera
  std::vector<bool> freeSensors;                       // whose pose is adjusted, too
  bool freeCameras = true;                             // focal lengths and distortion; the principal point stays
};

struct AdjustmentSummary {
  double errorBefore = 0, error = 0;  // mean reprojection error, pixels
  size_t observations = 0;
  size_t dropped = 0;  // observations taken out because they lay too far off
};

// Whether all cameras are of a model that can be adjusted.
bool canAdjust(const gs::colmap::Model& model);

// Adjusts, takes out the observations that lie far off and points seen less than twice, and adjusts again. The poses of
// the model's images and the errors of its points follow. Throws Cancelled.
AdjustmentSummary adjust(RigidModel& rigid, const std::function<bool()>& cancelled);

}  // namespace quor::refine
