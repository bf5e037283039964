#pragma once

#include <filesystem>

namespace quor {

// Returns when the file's contents are on the disk itself, so that they outlive a loss of power; false when the system
// could not say so.
bool syncFile(const std::filesystem::path& path);

}  // namespace quor
