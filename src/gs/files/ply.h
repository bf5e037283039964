// scene.ply: the splat file that other programs read, and any splat or point-cloud PLY read back.
#pragma once

#include <filesystem>
#include <string>

#include "gs/splats/gaussian_set.h"

namespace quor::gs {

// Binary little-endian, 62 floats a splat, atomic; `comment` may be empty. Throws std::runtime_error.
void writePly(const std::filesystem::path& path, const GaussianSet& set, const std::string& comment);

// Splat files and plain point clouds, binary little-endian or ASCII. Values are stored as read. Throws
// std::runtime_error.
GaussianSet readPly(const std::filesystem::path& path);

}  // namespace quor::gs
