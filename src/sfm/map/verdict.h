// A finished solve in words: its quality, and for a poor one the remedies.
#pragma once

#include <string>
#include <vector>

#include "sfm/colmap_runner.h"

namespace quor {

// The first line has the figures; each further one is a fault that they show, with its remedy.
std::vector<std::string> solveVerdict(const ColmapRunner::Result& result);

}  // namespace quor
