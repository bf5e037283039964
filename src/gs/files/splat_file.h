// scene.splat: the compact export, 32 bytes a splat in order of decreasing importance, without view-dependent colour.
#pragma once

#include <filesystem>

#include "gs/splats/gaussian_set.h"

namespace quor::gs {

// Atomic; throws std::runtime_error as writePly.
void writeSplat(const std::filesystem::path& path, const GaussianSet& set);

}  // namespace quor::gs
