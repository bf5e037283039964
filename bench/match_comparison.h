// Holds two sets of matches of the same features against each other and against an exact search on the processor.
#pragma once

#include <filesystem>

namespace quor {

// Both are COLMAP databases with the same features: `exact` has the matches that are to be exact, `colmap` those of
// COLMAP's own matcher. Prints how many matches they share, why each other one is in one of them only, and how many
// of the exact ones differ from a search of every descriptor by COLMAP's formula.
void compareMatches(const std::filesystem::path& exact, const std::filesystem::path& colmap);

}  // namespace quor
