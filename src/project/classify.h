// Classifies the paths that a user gives, for every front end. Never throws because of files on the disk.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "project/project.h"

namespace quor {

// Of a path in UTF-8 that the user gave: without "." and "..", and never ending in a separator. Paths in project.json
// and in results must not depend on where the program was started, and a project is named after its input's last
// component: "." and "capture/" have to name the folder itself.
std::filesystem::path absolutePath(const std::string& path);

// By extension; letter case does not count.
bool isVideoFile(const std::filesystem::path& path);
bool isImageFile(const std::filesystem::path& path);

// The media under a folder, sub-folders included, each list in byte order. Entries whose name begins with a dot,
// folders that are projects of their own, links to folders and unreadable entries are left out.
struct MediaFiles {
  std::vector<std::filesystem::path> images;
  std::vector<std::filesystem::path> videos;
};
MediaFiles findMedia(const std::filesystem::path& folder);

enum class PathClass { Missing, Scene, Checkpoint, Project, Dataset, Media, Nothing };

struct Classification {
  PathClass type = PathClass::Nothing;
  // Media only: first the folder itself for all images under it, then each video. A media file is one input, an image
  // too. Videos are all of kind Video: which of them are 360-degree ones shows only when they are opened.
  std::vector<InputSource> inputs;
  size_t imageCount = 0;  // images among them, sub-folders included
};

// A folder with a project.json is a Project, one with images/ and a COLMAP model a Dataset, one without any media
// Nothing.
Classification classifyPath(const std::filesystem::path& path);

}  // namespace quor
