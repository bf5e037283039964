// What a path given by the user is: shared by every front end.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "project/project.h"

namespace quor {

bool isVideoFile(const std::filesystem::path& path);
bool isImageFile(const std::filesystem::path& path);

enum class PathClass { Missing, Scene, Checkpoint, Project, Dataset, Media, Nothing };

struct Classification {
  PathClass type = PathClass::Nothing;
  std::vector<InputSource> inputs;  // Media only: each video one, the images of a folder one together
  size_t imageCount = 0;            // images among them, sub-folders included
};

Classification classifyPath(const std::filesystem::path& path);

}  // namespace quor
