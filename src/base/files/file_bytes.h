// A whole file in memory.
#pragma once

#include <cstdint>
#include <filesystem>
#include <vector>

namespace quor {

// Throws std::runtime_error with the bare reason: the file cannot be opened or read, is a folder, or is longer than
// `limit` bytes.
std::vector<uint8_t> readFileBytes(const std::filesystem::path& path, int64_t limit);

}  // namespace quor
