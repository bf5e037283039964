#include "pipeline/project_contents.h"

#include <system_error>

#include "base/files/paths.h"
#include "colmap/model.h"
#include "project/classify.h"

namespace quor {

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

}  // namespace quor
