#include <system_error>

#include "pipeline/pipeline.h"
#include "pipeline/project_contents.h"

namespace quor {

namespace {

std::string countOrNotRun(size_t count, const char* what) {
  return count == 0 ? "Not run" : std::to_string(count) + what;
}

}  // namespace

std::vector<std::string> Pipeline::summary() const {
  std::optional<Project> project;
  {
    const std::lock_guard lock(mutex_);
    project = project_;
  }
  if (!project) return std::vector<std::string>(kStageCount, "Not run");

  std::vector<std::string> lines;
  if (project->externalDataset.empty()) {
    lines.push_back(countOrNotRun(countFrames(*project), " frames"));
    lines.push_back(countOrNotRun(countCameras(*project), " images registered"));
  } else {
    lines.emplace_back("Using an existing reconstruction");
    lines.push_back(std::to_string(countCameras(*project)) + " cameras (imported)");
  }
  std::error_code ignored;
  const bool scene = std::filesystem::is_regular_file(project->sceneFile(), ignored);
  lines.emplace_back(scene ? "scene.ply exported" : "Not run");
  return lines;
}

}  // namespace quor
