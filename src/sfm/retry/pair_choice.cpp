#include "sfm/retry/pair_choice.h"

#include <algorithm>

namespace quor {
namespace {

using Edge = ViewGraph::Edge;

constexpr size_t kStrong = 50;  // matches
constexpr double kAgreement = 0.7;

ImagePair idsOf(const ViewGraph& graph, const Edge& edge) {
  return std::minmax(graph.nodes[edge.a].id, graph.nodes[edge.b].id);
}

std::string sourceOf(const ViewGraph::Node& node) {
  return node.name.substr(0, node.name.rfind('/') + 1);
}

template <typename Test>
std::set<ImagePair> pairsWhere(const ViewGraph& graph, Test&& test) {
  std::set<ImagePair> pairs;
  for (const Edge& edge : graph.edges) {
    if (test(edge)) pairs.insert(idsOf(graph, edge));
  }
  return pairs;
}

}  // namespace

std::set<ImagePair> nearPairs(const ViewGraph& graph, int64_t reach) {
  return pairsWhere(graph, [&](const Edge& edge) {
    const ViewGraph::Node &a = graph.nodes[edge.a], &b = graph.nodes[edge.b];
    if (sourceOf(a) != sourceOf(b)) return edge.matches >= kStrong;
    return std::abs(a.number - b.number) <= reach;
  });
}

std::set<ImagePair> strongestPairs(const ViewGraph& graph, size_t partners) {
  std::vector<std::vector<const Edge*>> edges(graph.nodes.size());
  for (const Edge& edge : graph.edges) {
    edges[edge.a].push_back(&edge);
    edges[edge.b].push_back(&edge);
  }
  std::set<ImagePair> pairs;
  for (auto& own : edges) {
    std::ranges::sort(own, std::greater(), &Edge::matches);
    for (size_t i = 0; i < std::min(partners, own.size()); ++i) pairs.insert(idsOf(graph, *own[i]));
  }
  return pairs;
}

std::set<ImagePair> agreeingPairs(const ViewGraph& graph, bool withUnplaced) {
  return pairsWhere(graph, [&](const Edge& edge) { return edge.placed ? edge.agreement >= kAgreement : withUnplaced; });
}

}  // namespace quor
