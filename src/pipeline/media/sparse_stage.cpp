// Frames to cameras.
#include "pipeline/pipeline_run.h"
#include "pipeline/stage.h"
#include "sfm/colmap_runner.h"
#include "sfm/map/verdict.h"

namespace quor {

StageResult solveCameras(Project& project, const StageContext& context) {
  ColmapRunner runner(
      context.tools.colmap, context.log, [&] { return context.run.mustEnd(); }, context.gpu);
  const ColmapRunner::Result result = runner.run(project, [&](const std::string& message, float fraction) {
    context.report({StageState::Running, message, fraction});
  });
  for (const std::string& line : solveVerdict(result)) context.log.info(line);
  return {std::to_string(result.registered) + " images registered", {}};
}

}  // namespace quor
