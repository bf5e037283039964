// Judges a finished solve: whether to train on its cameras, and what to do where not.
#pragma once

#include <vector>

#include "colmap/observations.h"
#include "project/camera_report.h"
#include "sfm/check/view_graph.h"

namespace quor {

// A solve to be judged. Without nodes in the graph nothing is said of neighbours and of the images that were not
// placed.
struct SolvedCameras {
  const gs::colmap::Model& model;
  const std::vector<gs::colmap::Observations>& observations;
  const ViewGraph& graph;
  size_t images = 0;               // given to the solve
  std::vector<size_t> modelSizes;  // registered images of every model COLMAP made, largest first
};
CameraReport judge(const SolvedCameras& solved);

// The neighbours by which a solve is judged, as pairs of nodes: images that follow one another in a video or a walk,
// and for photographs without order those that are each among the other's strongest partners.
std::vector<ImagePair> neighbourPairs(const ViewGraph& graph);
// Whether the images follow one another: nearly every two that do share matches.
bool isWalk(const ViewGraph& graph);

}  // namespace quor
