// The media at a path that the user dropped or chose, as a row of the form for a new project. Finding out walks folders
// and opens videos: work for a worker thread.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "project/classify.h"

namespace quor::ui {

// A folder with its photographs, one video, or single photographs out of one folder.
struct MediaSource {
  std::string name;
  std::vector<InputSource> inputs;  // of one kind
  size_t images = 0;                // photographs, sub-folders included; 0 for a video
  bool folder = false;

  InputKind kind() const { return inputs.front().kind; }
  bool isVideo() const { return kind() != InputKind::Images; }
  // "Garden: 212 images (subfolders included)", "walk.mp4: video"
  std::string text() const;
};

struct FoundMedia {
  std::vector<std::filesystem::path> origins;  // that held media
  std::vector<MediaSource> sources;
  std::vector<std::string> problems;  // sentences about what was left out
};

// `found` is the classification of `path`. A path without media, or one that cannot be read, becomes a problem.
void addMedia(FoundMedia& media, const std::filesystem::path& path, const Classification& found);

// Single photographs of one folder become one row, and a source that is there already is not added again.
void mergeMedia(std::vector<MediaSource>& sources, const std::vector<MediaSource>& more);

// "Found 3 sources in FOLDER" and a line for each of them.
std::vector<std::string> foundLines(const std::vector<std::filesystem::path>& origins,
                                    const std::vector<MediaSource>& sources);

}  // namespace quor::ui
