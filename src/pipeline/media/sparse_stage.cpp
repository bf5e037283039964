// Frames to cameras.
#include "pipeline/pipeline.h"
#include "sfm/colmap_runner.h"
#include "sfm/map/verdict.h"

namespace quor {

std::string Pipeline::runSparse(const Project& project) {
  ColmapRunner runner(
      tools_.colmap, log_, [this] { return cancel_.load(); }, gpu_);
  const ColmapRunner::Result result = runner.run(project, [this](const std::string& message, float fraction) {
    report(Stage::Sparse, StageState::Running, message, fraction);
  });
  for (const std::string& line : solveVerdict(result)) log_.info(line);
  return std::to_string(result.registered) + " images registered";
}

}  // namespace quor
