// The projects that an assistant asks about, read from their folders.
#pragma once

#include <filesystem>
#include <vector>

#include "mcp/json_rpc.h"

namespace quor::mcp {

// Throws what Project::load() throws. Anything else in the folder that is missing or damaged is left out.
Document projectInformation(const std::filesystem::path& root);

struct FoundProjects {
  std::vector<std::filesystem::path> roots;  // in byte order
  bool complete = true;                      // false when there were too many folders to look through
};

// The projects in a folder and below, the folder itself too. Hidden folders, links and the insides of projects are not
// entered.
FoundProjects findProjects(const std::filesystem::path& folder);

}  // namespace quor::mcp
