#include "sfm/retry/cut.h"

#include <algorithm>

#include "sfm/check/verdict.h"

namespace quor {

using gs::colmap::Observation;

std::set<std::string> longestSoundStretch(const ViewGraph& graph, const std::vector<CameraReport::Jump>& jumps) {
  std::set<std::pair<std::string, std::string>> broken;
  for (const CameraReport::Jump& jump : jumps) broken.emplace(jump.first, jump.second);
  std::set<std::string> longest, current;
  if (!isWalk(graph)) return longest;
  std::string sequence, last;
  std::vector<const ViewGraph::Node*> nodes;
  for (const ViewGraph::Node& node : graph.nodes) nodes.push_back(&node);
  std::ranges::sort(nodes, {}, [](const ViewGraph::Node* node) { return std::pair(node->sequence, node->number); });
  for (const ViewGraph::Node* node : nodes) {
    if (node->sequence != sequence || broken.contains({last, node->name})) current.clear();
    sequence = node->sequence;
    last = node->name;
    if (node->placed == ViewGraph::kNotPlaced) continue;
    current.insert(node->name);
    if (current.size() > longest.size()) longest = current;
  }
  return longest;
}

void keepImages(gs::colmap::Model& model, std::vector<gs::colmap::Observations>& observations,
                const std::set<std::string>& names) {
  std::vector<size_t> tracks(model.points.count());
  size_t kept = 0;
  for (size_t i = 0; i < model.images.size(); ++i) {
    if (!names.contains(model.images[i].name)) continue;
    for (const Observation& seen : observations[i]) {
      if (seen.point != Observation::kNoPoint) ++tracks[seen.point];
    }
    if (kept != i) {
      model.images[kept] = std::move(model.images[i]);
      observations[kept] = std::move(observations[i]);
    }
    ++kept;
  }
  model.images.resize(kept);
  observations.resize(kept);

  gs::colmap::Points points;
  std::vector<size_t> places(tracks.size(), Observation::kNoPoint);
  for (size_t p = 0; p < tracks.size(); ++p) {
    if (tracks[p] < 2) continue;
    places[p] = points.count();
    for (size_t k = 3 * p; k < 3 * p + 3; ++k) {
      points.positions.push_back(model.points.positions[k]);
      points.colors.push_back(model.points.colors[k]);
    }
    if (!model.points.errors.empty()) points.errors.push_back(model.points.errors[p]);
  }
  points.meanError = model.points.meanError;
  model.points = std::move(points);
  for (gs::colmap::Observations& list : observations) {
    for (Observation& seen : list) {
      if (seen.point != Observation::kNoPoint) seen.point = places[seen.point];
    }
  }
}

}  // namespace quor
