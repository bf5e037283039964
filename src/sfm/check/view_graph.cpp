#include "sfm/check/view_graph.h"

#include <algorithm>
#include <cctype>
#include <numbers>
#include <unordered_set>

#include "sfm/match/colmap_database.h"
#include "sfm/refine/pose.h"
#include "sfm/refine/projection.h"

namespace quor {
namespace {

using Eigen::Vector3d;
using gs::colmap::Observation;

// A match fits where it lies this close to its epipolar line, as a share of the image's longer edge. True pairs have
// nearly all matches within a tenth of that.
constexpr double kFits = 0.008;
constexpr size_t kFewMatches = 30;
constexpr double kContradictory = 0.3;
constexpr double kParallel = 0.003;  // radians: where directions meet says nothing any more
constexpr size_t kManyMatches = 50;
constexpr double kSharedShare = 0.1;  // of the matches; a true pair has most of them as points of the model
constexpr double kMinParallax = 1;    // degrees, less is not worth a point

void nameSequence(ViewGraph::Node& node) {
  const size_t slash = node.name.rfind('/') + 1;  // 0 without one
  const size_t digit = std::min(node.name.find_first_of("0123456789", slash), node.name.size());
  size_t end = digit;
  while (end < node.name.size() && std::isdigit(static_cast<unsigned char>(node.name[end])) != 0) ++end;
  node.sequence = node.name.substr(0, digit) + node.name.substr(end);
  node.number = end == digit || end - digit > 18 ? 0 : std::stoll(node.name.substr(digit, end - digit));
}

class Comparison {
 public:
  Comparison(const gs::colmap::Model& model, const std::vector<gs::colmap::Observations>& observations)
      : model_(model), observations_(observations) {
    for (const gs::colmap::Image& image : model.images) poses_.push_back(refine::poseOf(image));
    rays_.resize(model.images.size());
    points_.resize(model.images.size());
    for (size_t i = 0; i < model.images.size(); ++i) {
      for (const Observation& seen : observations[i]) {
        if (seen.point != Observation::kNoPoint) points_[i].insert(seen.point);
      }
    }
  }

  void compare(ViewGraph::Edge& edge, size_t a, size_t b, const std::vector<FeatureMatch>& matches) {
    const refine::Pose relative = poses_[b] * poses_[a].inverse();
    edge.placed = true;
    edge.angle = 2 * std::acos(std::min(1.0, std::abs(relative.rotation.w()))) * 180 / std::numbers::pi;
    for (const size_t point : points_[a]) edge.shared += points_[b].contains(point) ? 1 : 0;
    size_t fit = 0;
    std::vector<double> angles;
    for (const FeatureMatch& match : matches) {
      if (match.first >= observations_[a].size() || match.second >= observations_[b].size()) continue;
      const Vector3d turned = relative.rotation * ray(a, match.first);
      const Vector3d& second = ray(b, match.second);
      fit += fits(relative, turned, second, tolerance(b)) ? 1 : 0;
      angles.push_back(std::atan2(turned.cross(second).norm(), turned.dot(second)));
    }
    if (!angles.empty()) {
      std::ranges::nth_element(angles, angles.begin() + static_cast<std::ptrdiff_t>(angles.size() / 2));
      edge.parallax = angles[angles.size() / 2] * 180 / std::numbers::pi;
    }
    edge.agreement = static_cast<double>(fit) / static_cast<double>(matches.size());
  }

 private:
  // Whether the second direction lies in the plane that the first one, turned into its frame, and the baseline span,
  // and the two meet before both cameras.
  static bool fits(const refine::Pose& relative, const Vector3d& turned, const Vector3d& second, double tolerance) {
    const Vector3d normal = relative.translation.cross(turned);
    const double length = normal.norm();
    if (length <= 1e-9 * relative.translation.norm() || relative.translation.norm() == 0) {
      return turned.cross(second).norm() < tolerance && turned.dot(second) > 0;
    }
    if (std::abs(normal.dot(second)) / length >= tolerance) return false;
    // turned * a + translation = second * b
    const double cosine = turned.dot(second), along = 1 - cosine * cosine;
    if (along < kParallel * kParallel) return true;
    const double a = (cosine * second.dot(relative.translation) - turned.dot(relative.translation)) / along;
    const double b = (second.dot(relative.translation) - cosine * turned.dot(relative.translation)) / along;
    return a > 0 && b > 0;
  }

  const gs::colmap::Camera& cameraOf(size_t image) const { return model_.cameras.at(model_.images[image].cameraId); }

  double tolerance(size_t image) const {  // as an angle
    const gs::colmap::Camera& camera = cameraOf(image);
    return kFits * static_cast<double>(std::max(camera.width, camera.height)) / std::max(camera.params.at(0), 1.0);
  }

  const Vector3d& ray(size_t image, uint32_t feature) {
    std::vector<Vector3d>& rays = rays_[image];
    if (rays.empty()) {
      const gs::colmap::Camera& camera = cameraOf(image);
      rays.resize(observations_[image].size());
      refine::visitCamera(camera.model, [&]<typename Camera>(Camera) {
        for (size_t i = 0; i < rays.size(); ++i) {
          const Observation& seen = observations_[image][i];
          rays[i] = Vector3d(refine::direction<Camera>(camera.params.data(), seen.x, seen.y).data());
        }
      });
    }
    return rays[feature];
  }

  const gs::colmap::Model& model_;
  const std::vector<gs::colmap::Observations>& observations_;
  std::vector<refine::Pose> poses_;
  std::vector<std::vector<Vector3d>> rays_;
  std::vector<std::unordered_set<size_t>> points_;
};

}  // namespace

const ViewGraph::Edge* ViewGraph::find(size_t a, size_t b) const {
  const auto found = edgeOf.find(std::minmax(static_cast<uint32_t>(a), static_cast<uint32_t>(b)));
  return found == edgeOf.end() ? nullptr : &edges[found->second];
}

size_t ViewGraph::placedCount() const {
  return static_cast<size_t>(std::ranges::count_if(nodes, [](const Node& node) { return node.placed != kNotPlaced; }));
}

bool contradicts(const ViewGraph::Edge& edge) {
  if (!edge.placed || edge.matches < kFewMatches) return false;
  if (edge.agreement < kContradictory) return true;
  return edge.matches >= kManyMatches && edge.parallax >= kMinParallax &&
         static_cast<double>(edge.shared) < kSharedShare * static_cast<double>(edge.matches);
}

ViewGraph viewGraph(const std::filesystem::path& database, const gs::colmap::Model& model,
                    const std::vector<gs::colmap::Observations>& observations) {
  ViewGraph graph;
  ColmapDatabase file(database);
  for (const DatabaseImage& image : file.images()) {
    ViewGraph::Node& node = graph.nodes.emplace_back();
    node.name = image.name;
    node.id = image.id;
    node.features = image.features;
    nameSequence(node);
  }
  std::ranges::sort(graph.nodes, {}, &ViewGraph::Node::name);
  std::map<uint32_t, size_t> byId;
  std::map<std::string, size_t> byName;
  for (size_t i = 0; i < graph.nodes.size(); ++i) {
    byId[graph.nodes[i].id] = i;
    byName[graph.nodes[i].name] = i;
  }
  for (size_t i = 0; i < model.images.size(); ++i) {
    if (const auto node = byName.find(model.images[i].name); node != byName.end()) graph.nodes[node->second].placed = i;
  }
  Comparison comparison(model, observations);
  file.eachVerifiedPair([&](const ImagePair& pair, const std::vector<FeatureMatch>& matches) {
    const auto a = byId.find(pair.first), b = byId.find(pair.second);
    if (a == byId.end() || b == byId.end()) return;
    graph.edgeOf[std::minmax(static_cast<uint32_t>(a->second), static_cast<uint32_t>(b->second))] = graph.edges.size();
    ViewGraph::Edge& edge = graph.edges.emplace_back();
    edge.a = a->second;
    edge.b = b->second;
    edge.matches = matches.size();
    const size_t first = graph.nodes[edge.a].placed, second = graph.nodes[edge.b].placed;
    if (first != ViewGraph::kNotPlaced && second != ViewGraph::kNotPlaced) {
      comparison.compare(edge, first, second, matches);
    }
  });
  return graph;
}

}  // namespace quor
