// Finds out what the paths are that a user dropped, chose or named. Reads the disk: for a worker thread.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "project/project.h"
#include "ui/models/notice.h"
#include "ui/models/project/dataset_import.h"
#include "ui/models/project/media_source.h"
#include "ui/models/project/project_facts.h"

namespace quor::ui {

// A project, a scene, media or an import; or a notice that says why nothing was opened.
struct Opened {
  std::optional<Project> project;
  std::filesystem::path scene;
  FoundMedia media;
  std::optional<DatasetImport> import;  // a dataset whose project could not be made at its place: the form to ask with
  std::optional<Notice> notice;         // beside the project: the good news that it was made
  ProjectFacts facts;                   // of project or scene
  std::filesystem::path gone;           // a path that is no longer there
};

Opened openPaths(const std::vector<std::filesystem::path>& paths);
// Throws std::runtime_error.
Opened openProject(const std::filesystem::path& folder);
// Makes the project that wraps the dataset, or opens the one that does already; `outDir` empty: beside the dataset.
// Asks for another place by `import` when the folder cannot be written to or holds another project. Throws
// std::runtime_error when it is not a dataset.
Opened openDataset(const std::filesystem::path& dataset, const std::filesystem::path& outDir);

}  // namespace quor::ui
