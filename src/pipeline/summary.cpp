#include <system_error>

#include "base/paths.h"
#include "colmap/model.h"
#include "pipeline/pipeline.h"
#include "project/classify.h"

namespace quor {

namespace {

size_t countFrames(const std::filesystem::path& folder) {
  size_t count = 0;
  std::error_code error;
  for (std::filesystem::recursive_directory_iterator it(folder, error), end; !error && it != end; it.increment(error)) {
    std::error_code ignored;
    if (it->is_regular_file(ignored) && isImageFile(it->path())) ++count;
  }
  return count;
}

// 0 when there is no model that can be read.
size_t countCameras(const std::filesystem::path& dataset) {
  try {
    const std::filesystem::path model = gs::colmap::findModelDir(dataset);
    return model.empty() ? 0 : gs::colmap::loadModel(model, false).images.size();
  } catch (const std::exception&) {
    return 0;
  }
}

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
    lines.push_back(countOrNotRun(countFrames(project->framesFolder()), " frames"));
    lines.push_back(countOrNotRun(countCameras(project->solvedFolder()), " images registered"));
  } else {
    lines.emplace_back("Using an existing reconstruction");
    lines.push_back(std::to_string(countCameras(fromUtf8(project->externalDataset))) + " cameras (imported)");
  }
  std::error_code ignored;
  const bool scene = std::filesystem::is_regular_file(project->sceneFile(), ignored);
  lines.emplace_back(scene ? "scene.ply exported" : "Not run");
  return lines;
}

}  // namespace quor
