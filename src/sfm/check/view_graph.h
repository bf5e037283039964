// What the matches of a solve say about its cameras. Every pair of images with verified matches is a witness that knows
// nothing of the solve: where its matches do not fit the two cameras' poses, one of both is wrong.
#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "colmap/observations.h"
#include "sfm/match/image_pairs.h"

namespace quor {

struct ViewGraph {
  static constexpr size_t kNotPlaced = ~size_t{0};

  struct Node {
    std::string name;
    uint32_t id = 0;  // in the database
    uint32_t features = 0;
    size_t placed = kNotPlaced;  // index into the model's images
    // Images of one source and camera in the order of their numbers: "s01/f00012_v03.jpg" is number 12 of the sequence
    // "s01/f_v03". A name without a number is a sequence of its own.
    std::string sequence;
    int64_t number = 0;
  };
  struct Edge {
    size_t a = 0, b = 0;  // nodes
    size_t matches = 0;   // verified
    // Of pairs of which both images are placed:
    bool placed = false;
    double agreement = 0;  // share of the matches that lie on the poses' epipolar lines, before both cameras
    double parallax = 0;   // degrees, median over the matches, between the directions that the poses give to them
    double angle = 0;      // degrees between the poses
    size_t shared = 0;     // points of the model that both images see
  };

  std::vector<Node> nodes;  // every image of the database, by name
  std::vector<Edge> edges;
  std::map<ImagePair, size_t> edgeOf;  // by the nodes' indices, the smaller first

  const Edge* find(size_t a, size_t b) const;
  size_t placedCount() const;
};

// Two images whose matches do not fit their poses, or hold next to none of the points that both should see: along a
// straight way, all steps have the same epipolar lines.
bool contradicts(const ViewGraph::Edge& edge);

// Reads the verified matches of the database and compares them with the model. Throws std::runtime_error.
ViewGraph viewGraph(const std::filesystem::path& database, const gs::colmap::Model& model,
                    const std::vector<gs::colmap::Observations>& observations);

}  // namespace quor
