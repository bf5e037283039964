// Counts the results of the stages in a project's folder for a summary. Missing or damaged files never make it throw.
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
// The same with counts that the caller has already.
std::vector<std::string> summaryLines(const Project& project, size_t frames, size_t cameras);

}  // namespace quor
