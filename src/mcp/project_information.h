// What an assistant is told about projects, read from their folders.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "mcp/json_rpc.h"

namespace quor::mcp {

// Throws what Project::load() throws. What else is in the folder may be missing or damaged and is then left out.
Document projectInformation(const std::filesystem::path& root);

// The end of a file, at most `most` bytes from the start of a line; nothing when it cannot be read.
std::optional<std::string> readTail(const std::filesystem::path& file, size_t most);

struct FoundProjects {
  std::vector<std::filesystem::path> roots;  // in byte order
  bool complete = true;                      // false when there were too many folders to look through
};

// The projects in a folder and below, the folder itself too. Hidden folders, links and the insides of projects are not
// entered.
FoundProjects findProjects(const std::filesystem::path& folder);

}  // namespace quor::mcp
