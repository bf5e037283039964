// The stages before training in a build that leaves FFmpeg and COLMAP out.
#include <stdexcept>

#include "pipeline/media.h"
#include "pipeline/stage.h"

namespace quor {

namespace {

[[noreturn]] void refuse() {
  throw std::runtime_error(
      "This build of Ombrelux only trains: it was made without frame extraction and camera solving. Pass a COLMAP "
      "dataset to `train` or `import`.");
}

}  // namespace

void prepareMedia() {}

void detectVideoKinds(std::vector<InputSource>&) {}

size_t mediaKernelCount() {
  return 0;
}

StageResult prepareFrames(Project&, const StageContext&) {
  refuse();
}

StageResult solveCameras(Project&, const StageContext&) {
  refuse();
}

}  // namespace quor
