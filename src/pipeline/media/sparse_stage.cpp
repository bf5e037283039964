// Frames to cameras.
#include "pipeline/pipeline.h"
#include "sfm/colmap_runner.h"

namespace quor {

std::string Pipeline::runSparse(const Project& project) {
  ColmapRunner runner(tools_.colmap, log_, [this] { return cancel_.load(); });
  const ColmapRunner::Result result = runner.run(project, [this](const std::string& message, float fraction) {
    report(Stage::Sparse, StageState::Running, message, fraction);
  });
  return std::to_string(result.registered) + " images registered";
}

}  // namespace quor
