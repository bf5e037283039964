// A finished solve in words: how good it is, and when it is poor what to do about the capture.
#pragma once

#include <string>
#include <vector>

#include "sfm/colmap_runner.h"

namespace quor {

// The first line has the figures; each further one is a fault that they show, with its remedy.
std::vector<std::string> solveVerdict(const ColmapRunner::Result& result);

}  // namespace quor
