#include "sfm/check/verdict.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <numeric>
#include <set>

#include "base/text/text.h"
#include "sfm/check/coverage.h"
#include "sfm/refine/pose.h"

namespace quor {
namespace {

using Edge = ViewGraph::Edge;
using gs::colmap::Observation;

// Below 2 px splats are sharp; a solve of sharp photographs has 0.3 to 1.
constexpr double kPoorError = 2;
constexpr size_t kFewPointsPerImage = 30;
constexpr size_t kWeakLink = 12;  // points
constexpr size_t kStrongMatches = 50;
constexpr size_t kPartners = 3;  // an image's strongest, where there is no order
constexpr double kWalkShare = 0.7;
constexpr size_t kWitnessMatches = 30;
constexpr double kSpanDegrees = 5, kStill = 0.01;  // a step that turns without moving: parallax under a hundredth

std::vector<ImagePair> consecutive(const ViewGraph& graph) {
  std::map<std::string, std::vector<size_t>> sequences;
  for (size_t i = 0; i < graph.nodes.size(); ++i) sequences[graph.nodes[i].sequence].push_back(i);
  std::vector<ImagePair> pairs;
  for (auto& [name, nodes] : sequences) {
    std::ranges::sort(nodes, {}, [&](size_t node) { return graph.nodes[node].number; });
    for (size_t i = 1; i < nodes.size(); ++i) {
      pairs.emplace_back(static_cast<uint32_t>(nodes[i - 1]), static_cast<uint32_t>(nodes[i]));
    }
  }
  return pairs;
}

std::vector<ImagePair> strongestPartners(const ViewGraph& graph) {
  std::vector<std::vector<const Edge*>> partners(graph.nodes.size());
  for (const Edge& edge : graph.edges) {
    partners[edge.a].push_back(&edge);
    partners[edge.b].push_back(&edge);
  }
  std::map<const Edge*, int> named;
  for (auto& edges : partners) {
    std::ranges::sort(edges, std::greater(), &Edge::matches);
    for (size_t i = 0; i < std::min(kPartners, edges.size()); ++i) ++named[edges[i]];
  }
  std::vector<ImagePair> pairs;
  for (const auto& [edge, times] : named) {
    if (times == 2) pairs.push_back(std::minmax(static_cast<uint32_t>(edge->a), static_cast<uint32_t>(edge->b)));
  }
  std::ranges::sort(pairs);
  return pairs;
}

class Judgement {
 public:
  explicit Judgement(const SolvedCameras& solved) : solved_(solved) {
    for (const gs::colmap::Image& image : solved.model.images) poses_.push_back(refine::poseOf(image));
  }

  CameraReport run() {
    report_.images = solved_.images;
    report_.registered = solved_.model.images.size();
    report_.modelSizes = solved_.modelSizes;
    report_.points = solved_.model.points.count();
    report_.reprojectionError = std::max(solved_.model.points.meanError, 0.0);
    measureTracks();
    compareNeighbours();
    findWeakestLink();
    explainMissing();
    measureCoverage();
    conclude();
    return std::move(report_);
  }

 private:
  void measureTracks() {
    size_t seen = 0;
    for (const auto& list : solved_.observations) {
      seen += static_cast<size_t>(
          std::ranges::count_if(list, [](const Observation& o) { return o.point != Observation::kNoPoint; }));
    }
    if (report_.points > 0) report_.trackLength = static_cast<double>(seen) / static_cast<double>(report_.points);
  }

  void compareNeighbours() {
    const ViewGraph& graph = solved_.graph;
    size_t steps = 0, turns = 0;
    for (const auto& [a, b] : neighbourPairs(graph)) {
      const Edge* edge = graph.find(a, b);
      if (!edge || !edge->placed || edge->matches < kWitnessMatches) continue;
      ++report_.neighbours;
      if (contradicts(*edge)) {
        report_.jumps.push_back({graph.nodes[a].name, graph.nodes[b].name, edge->matches, edge->angle});
      } else {
        ++steps;
        turns += turnsOnTheSpot(*edge) ? 1 : 0;
      }
    }
    if (steps > 0) report_.turningShare = static_cast<double>(turns) / static_cast<double>(steps);
  }

  // Against the distance of what both see.
  bool turnsOnTheSpot(const Edge& edge) const {
    const size_t a = solved_.graph.nodes[edge.a].placed, b = solved_.graph.nodes[edge.b].placed;
    std::vector<double> depths;
    for (const Observation& seen : solved_.observations[a]) {
      if (seen.point == Observation::kNoPoint) continue;
      const float* p = &solved_.model.points.positions[3 * seen.point];
      depths.push_back((Eigen::Vector3f(p).cast<double>() - poses_[a].centre()).norm());
    }
    if (depths.empty() || edge.angle < kSpanDegrees) return false;
    std::ranges::nth_element(depths, depths.begin() + static_cast<std::ptrdiff_t>(depths.size() / 2));
    return (poses_[a].centre() - poses_[b].centre()).norm() < kStill * depths[depths.size() / 2];
  }

  // The last edge of the spanning tree of most shared points: all others between its two sides are no stronger.
  void findWeakestLink() {
    std::vector<const Edge*> edges;
    for (const Edge& edge : solved_.graph.edges) {
      if (edge.placed && edge.shared > 0) edges.push_back(&edge);
    }
    std::ranges::stable_sort(edges, std::greater(), &Edge::shared);
    std::vector<size_t> roots(solved_.graph.nodes.size());
    std::iota(roots.begin(), roots.end(), size_t{0});
    const auto root = [&](size_t node) {
      while (roots[node] != node) node = roots[node] = roots[roots[node]];
      return node;
    };
    for (const Edge* edge : edges) {
      const size_t a = root(edge->a), b = root(edge->b);
      if (a == b) continue;
      roots[a] = b;
      report_.weakestLink = {solved_.graph.nodes[edge->a].name, solved_.graph.nodes[edge->b].name, edge->shared};
    }
  }

  void explainMissing() {
    const ViewGraph& graph = solved_.graph;
    std::vector<uint32_t> features;
    for (const ViewGraph::Node& node : graph.nodes) features.push_back(node.features);
    if (features.empty()) return;
    std::ranges::nth_element(features, features.begin() + static_cast<std::ptrdiff_t>(features.size() / 2));
    const double usual = features[features.size() / 2];
    std::vector<const Edge*> withPlaced(graph.nodes.size()), withMissing(graph.nodes.size());
    const auto offer = [](const Edge*& best, const Edge& edge) {
      if (!best || best->matches < edge.matches) best = &edge;
    };
    const auto placed = [&](size_t node) { return graph.nodes[node].placed != ViewGraph::kNotPlaced; };
    for (const Edge& edge : graph.edges) {
      for (const auto& [node, other] : {std::pair(edge.a, edge.b), std::pair(edge.b, edge.a)}) {
        offer((placed(other) ? withPlaced : withMissing)[node], edge);
      }
    }
    for (size_t i = 0; i < graph.nodes.size(); ++i) {
      const ViewGraph::Node& node = graph.nodes[i];
      if (placed(i)) continue;
      const Edge* partner = withPlaced[i];
      std::string reason;
      if (node.features < kFewFeatures) {
        reason = formatText("hardly any detail (%u features): plain, dark or blurred", node.features);
      } else if (!partner && !withMissing[i]) {
        reason = node.features < kBlurredShare * usual
                     ? formatText("overlaps with no other image; with %u features it may be blurred", node.features)
                     : "overlaps with no other image";
      } else if (!partner) {
        reason = "overlaps only with images that were not placed either, such as " + partnerOf(*withMissing[i], i);
        apart_.push_back(node.name);
      } else {
        reason =
            formatText("too little in common with the placed images: at most %zu matches, with ", partner->matches) +
            partnerOf(*partner, i);
        if (node.features < kBlurredShare * usual) reason += "; it may be blurred";
      }
      report_.notPlaced.push_back({node.name, reason});
    }
  }
  const std::string& partnerOf(const Edge& edge, size_t node) const {
    return solved_.graph.nodes[edge.a == node ? edge.b : edge.a].name;
  }

  // The sectors around the middle of what is seen from which it is seen, where most cameras look inwards.
  void measureCoverage() {
    const std::optional<Coverage> coverage = coverageOf(solved_.model);
    if (!coverage) return;
    report_.coverageDegrees = coverage->degrees;
    report_.gaps = coverage->gaps;
  }

  void conclude() {
    const bool strong = std::ranges::any_of(
        report_.jumps, [](const CameraReport::Jump& jump) { return jump.matches >= kStrongMatches; });
    // Without an order two images that look alike are sometimes taken for neighbours.
    const bool folded = isWalk(solved_.graph) ? report_.jumps.size() > 1 || strong
                                              : report_.jumps.size() > 1 && report_.foldScore() > kAlikeShare;
    adviseOnJumps(folded);
    adviseOnPlacing();
    adviseOnQuality();
    report_.trust = folded ? CameraTrust::Folded : report_.advice.empty() ? CameraTrust::Sound : CameraTrust::Doubtful;
    const char* conclusion = folded                   ? "Do not train on these cameras, they are folded"
                             : report_.advice.empty() ? "The cameras hold together"
                                                      : "The cameras can be trained on, with the reservations below";
    report_.summary = formatText("%s: %zu of %zu images registered, %zu points", conclusion, report_.registered,
                                 report_.images, report_.points);
    if (report_.reprojectionError > 0) {
      report_.summary += formatText(", mean reprojection error %.2f px", report_.reprojectionError);
    }
    report_.summary += ".";
  }

  void adviseOnJumps(bool folded) {
    if (report_.jumps.empty()) return;
    std::string places;
    for (size_t i = 0; i < std::min(report_.jumps.size(), kListed); ++i) {
      const CameraReport::Jump& jump = report_.jumps[i];
      places += (i == 0 ? "" : ", ") + jump.first + " and " + jump.second +
                formatText(" (%zu matches, %.0f degrees apart)", jump.matches, jump.degrees);
    }
    if (report_.jumps.size() > kListed) places += ", ...";
    report_.advice.push_back(
        "Neighbouring images that show the same things were placed apart: " + places +
        (folded ? ". Parts of the scene that look alike were laid over each other: take photographs that show what "
                  "tells the sides apart, closer together, or solve the parts as projects of their own."
                : "."));
  }

  void adviseOnPlacing() {
    const size_t missing = report_.images - std::min(report_.registered, report_.images);
    if (report_.modelSizes.size() > 1 && 20 * missing > report_.images) {
      report_.advice.push_back(
          formatText("COLMAP made %zu separate models (%s images) and only the largest is used: take more "
                     "photos where one part of the scene leads to the next, or try the exhaustive matcher.",
                     report_.modelSizes.size(), sizeList().c_str()));
    } else if (apart_.size() >= kFewestOfASubject) {
      report_.advice.push_back(formatText(
          "%zu images (%s to %s) overlap only with one another and seem to show something else: build them as "
          "a project of their own, or take photos that lead from one to the other.",
          apart_.size(), apart_.front().c_str(), apart_.back().c_str()));
    } else if (10 * missing > report_.images) {
      report_.advice.push_back(
          formatText("%zu images could not be placed: neighbouring views should share 60-80%% of what they "
                     "show, in steps to the side rather than turns on the spot, without motion blur.",
                     missing));
    }
    if (report_.turningShare > kMuchTurning) {
      report_.advice.push_back(
          formatText("%.0f %% of the steps turn the camera without moving it, and give no depth: "
                     "walk while you turn.",
                     100 * report_.turningShare));
    }
    if (report_.weakestLink && report_.weakestLink->points < kWeakLink) {
      const CameraReport::Link& link = *report_.weakestLink;
      report_.advice.push_back(formatText("Only %zu points hold %s and %s together: take more images between them.",
                                          link.points, link.first.c_str(), link.second.c_str()));
    }
  }

  void adviseOnQuality() {
    if (report_.reprojectionError > kPoorError) {
      report_.advice.push_back(
          "The reprojection error is high: the scene may have moved, frames may be blurred, or another camera "
          "model may fit the lens better.");
    }
    if (report_.points < kFewPointsPerImage * report_.registered) {
      report_.advice.push_back(
          "There are few points: plain walls, glass and dark places hold nothing to match; get more texture "
          "and light into the frames, or use larger ones.");
    }
  }

  std::string sizeList() const {
    constexpr size_t kMaxListed = 6;
    std::string text;
    for (size_t i = 0; i < report_.modelSizes.size() && i < kMaxListed; ++i) {
      text += (i == 0 ? "" : ", ") + std::to_string(report_.modelSizes[i]);
    }
    return report_.modelSizes.size() > kMaxListed ? text + ", ..." : text;
  }

  static constexpr size_t kFewestOfASubject = 5;
  static constexpr uint32_t kFewFeatures = 50;
  static constexpr double kBlurredShare = 0.3;  // of the usual number of features
  static constexpr double kMuchTurning = 0.3;
  static constexpr double kAlikeShare = 0.03;
  static constexpr size_t kListed = 4;

  const SolvedCameras& solved_;
  std::vector<refine::Pose> poses_;
  CameraReport report_;
  std::vector<std::string> apart_;  // images that overlap, but with none that was placed
};

}  // namespace

bool isWalk(const ViewGraph& graph) {
  size_t pairs = 0, witnesses = 0;
  for (const auto& [a, b] : consecutive(graph)) {
    ++pairs;
    const Edge* edge = graph.find(a, b);
    witnesses += edge && edge->matches >= kWitnessMatches ? 1 : 0;
  }
  return pairs > 0 && static_cast<double>(witnesses) >= kWalkShare * static_cast<double>(pairs);
}

std::vector<ImagePair> neighbourPairs(const ViewGraph& graph) {
  return isWalk(graph) ? consecutive(graph) : strongestPartners(graph);
}

CameraReport judge(const SolvedCameras& solved) {
  return Judgement(solved).run();
}

}  // namespace quor
