// Frames to cameras.
#include "pipeline/media.h"
#include "pipeline/pipeline_run.h"
#include "pipeline/stage.h"
#include "sfm/colmap_runner.h"
#include "sfm/match/matching_kernels.h"

namespace quor {

size_t mediaKernelCount() {
  return gs::matchingKernels().size();
}

StageResult solveCameras(Project& project, const StageContext& context) {
  ColmapRunner runner(
      context.tools.colmap, context.log, [&] { return context.run.mustEnd(); }, context.gpu);
  const ColmapRunner::Result result = runner.run(project, [&](const std::string& message, float fraction, int part) {
    context.report({.state = StageState::Running, .message = message, .fraction = fraction, .part = part});
  });
  const CameraReport& report = result.report;
  const bool sound = report.trust == CameraTrust::Sound;
  context.log.add(sound ? LogLevel::Information : LogLevel::Warning, report.summary);
  for (const std::string& sentence : report.advice) context.log.info(sentence);
  return {std::to_string(report.registered) + " images registered", {}};
}

}  // namespace quor
