#include "pipeline/project_contents.h"

#include <system_error>

#include "base/files/paths.h"
#include "colmap/model.h"
#include "project/classify.h"

namespace quor {

namespace {

std::string countOrNotRun(size_t count, const char* what) {
  return count == 0 ? "Not run" : std::to_string(count) + what;
}

}  // namespace

size_t countFrames(const Project& project) {
  size_t count = 0;
  std::error_code error;
  for (std::filesystem::recursive_directory_iterator it(project.framesFolder(), error), end; !error && it != end;
       it.increment(error)) {
    std::error_code ignored;
    if (it->is_regular_file(ignored) && isImageFile(it->path())) ++count;
  }
  return count;
}

size_t countCameras(const Project& project) {
  try {
    const std::filesystem::path dataset =
        project.externalDataset.empty() ? project.solvedFolder() : fromUtf8(project.externalDataset);
    const std::filesystem::path model = gs::colmap::findModelDir(dataset);
    return model.empty() ? 0 : gs::colmap::loadModel(model, false).images.size();
  } catch (const std::exception&) {
    return 0;
  }
}

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

}  // namespace quor
