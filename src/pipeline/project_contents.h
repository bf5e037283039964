// What the stages have left in a project's folder, as far as a summary needs it. Nothing here throws for what lies on
// the disk.
#pragma once

#include <cstddef>
#include <filesystem>
#include <string>
#include <vector>

#include "project/project.h"

namespace quor {

size_t countFrames(const Project& project);
// Of the camera solve, or of the dataset that the project wraps. 0 when there is no model that can be read.
size_t countCameras(const Project& project);

// One line a stage.
std::vector<std::string> summaryLines(const Project& project);
// The same, for who has counted already.
std::vector<std::string> summaryLines(const Project& project, size_t frames, size_t cameras);

}  // namespace quor
