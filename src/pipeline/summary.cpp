#include <system_error>

#include "pipeline/pipeline.h"
#include "pipeline/project_contents.h"

namespace quor {

namespace {

std::string countOrNotRun(size_t count, const char* what) {
  return count == 0 ? "Not run" : std::to_string(count) + what;
}

}  // namespace

std::vector<std::string> summaryLines(const Project& project, size_t frames, size_t cameras) {
  std::vector<std::string> lines;
  if (project.externalDataset.empty()) {
    lines.push_back(countOrNotRun(frames, " frames"));
    lines.push_back(countOrNotRun(cameras, " images registered"));
  } else {
    lines.emplace_back("Using an existing reconstruction");
    lines.push_back(std::to_string(cameras) + " cameras (imported)");
  }
  std::error_code ignored;
  const bool scene = std::filesystem::is_regular_file(project.sceneFile(), ignored);
  lines.emplace_back(scene ? "scene.ply exported" : "Not run");
  return lines;
}

std::vector<std::string> summaryLines(const Project& project) {
  return summaryLines(project, project.externalDataset.empty() ? countFrames(project) : 0, countCameras(project));
}

std::vector<std::string> Pipeline::summary() const {
  const std::optional<Project> opened = project();
  return opened ? summaryLines(*opened) : std::vector<std::string>(kStageCount, "Not run");
}

}  // namespace quor
