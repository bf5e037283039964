// Which verified pairs a solve is tried with again. A folded solve has pairs of images that look alike and are not the
// same place; what is left without them still has to hold together.
#pragma once

#include <set>

#include "sfm/check/view_graph.h"

namespace quor {

// Pairs of one source at most `reach` numbers apart, whatever their camera, and the strong pairs between sources.
std::set<ImagePair> nearPairs(const ViewGraph& graph, int64_t reach);
// Each image's strongest pairs.
std::set<ImagePair> strongestPairs(const ViewGraph& graph, size_t partners);
// Pairs that fit the poses of the solve whose graph it is, and all that have an image which it left out.
std::set<ImagePair> agreeingPairs(const ViewGraph& graph, bool withUnplaced);

}  // namespace quor
