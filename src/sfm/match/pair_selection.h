// Which pairs of images a solve matches: COLMAP's own choices (image_pairs.h), less what cannot help it.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "sfm/match/image_pairs.h"
#include "sfm/solve_context.h"

namespace quor {

// The pairs of the exhaustive or the sequential matcher:
// - of many photographs only those that look alike, lie next to one another by name, or were taken near one another,
//   where the settings do not ask for all;
// - of a sphere's views none of one moment, and in a sequence those that look the same way, moment by moment.
// Reads the database's descriptors for the first of these.
std::vector<ImagePair> selectPairs(const SolveContext& solve, Matcher matcher);

// Whether selectPairs leaves out pairs that the exhaustive matcher would match.
bool limitsPairs(const SolveContext& solve, Matcher matcher);

// Writes the pairs, by the images' names, as COLMAP's matches_importer reads them, to a file of that name in the
// solve's lists. Throws std::runtime_error for a name that cannot stand there.
std::filesystem::path writePairList(const SolveContext& solve, const std::string& name,
                                    const std::vector<ImagePair>& pairs);

}  // namespace quor
