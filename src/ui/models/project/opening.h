// What the paths that a user dropped, chose or named turn out to be. Reads the disk: for a worker thread.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "project/project.h"
#include "ui/models/notice.h"
#include "ui/models/project/media_source.h"
#include "ui/models/project/project_facts.h"

namespace quor::ui {

// One of these, or a notice why not.
struct Opened {
  std::optional<Project> project;
  std::filesystem::path scene;
  FoundMedia media;
  std::optional<Notice> notice;  // beside the project: the good news that it was made
  ProjectFacts facts;            // of project or scene
  std::filesystem::path gone;    // that is no longer there
};

Opened openPaths(const std::vector<std::filesystem::path>& paths);
// Throws std::runtime_error.
Opened openProject(const std::filesystem::path& folder);
// Makes the project that wraps the dataset, or opens the one that does already. Throws std::runtime_error.
Opened openDataset(const std::filesystem::path& dataset, const std::filesystem::path& outDir);

}  // namespace quor::ui
