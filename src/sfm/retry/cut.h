// The part of a folded solve that can be trusted.
#pragma once

#include <set>
#include <string>

#include "project/camera_report.h"
#include "sfm/check/view_graph.h"

namespace quor {

// The longest run of placed images, in the order of their numbers, without a jump in it; nothing where the images have
// no order.
std::set<std::string> longestSoundStretch(const ViewGraph& graph, const std::vector<CameraReport::Jump>& jumps);

// Takes the other images out of a model, with their observations and the points that are then seen less than twice.
void keepImages(gs::colmap::Model& model, std::vector<gs::colmap::Observations>& observations,
                const std::set<std::string>& names);

}  // namespace quor
