// The stages of a project and their status records.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <limits>
#include <optional>
#include <string>

#include "base/failures.h"
#include "base/log/log_store.h"
#include "base/process/tool_finder.h"
#include "gs/train/training_service.h"
#include "project/project.h"

namespace quor {

namespace gs {
class VulkanContext;
}
class PipelineRun;

enum class Stage : int32_t { Frames = 0, Sparse = 1, Train = 2 };
inline constexpr size_t kStageCount = 3;
const char* stageName(Stage stage);

enum class StageState : int32_t { NotRun = 0, Running = 1, Done = 2, Failed = 3 };

struct StageStatus {
  StageState state = StageState::NotRun;
  std::string message;                                            // for the user; nothing is ever read from it
  float fraction = -1;                                            // 0..1, -1 when unknown
  double secondsLeft = std::numeric_limits<double>::quiet_NaN();  // of the stage, NaN while unknown
  int32_t part = 0;                                               // of the stage's work: 0 before the first begins
  int32_t step = 0;                                               // of training, above 0 once it steps
  int32_t total = 0;                                              // training steps
  Outcome outcome = Outcome::Success;                             // of a stage that failed or was cancelled
};

// What a stage body works with.
struct StageContext {
  LogStore& log;
  const Tools& tools;
  gs::VulkanContext* gpu;  // may be null: COLMAP matches then
  gs::TrainingService& trainer;
  const PipelineRun& run;  // asked at short intervals whether to end
  // Replaces the stage's record; `state` is Running.
  std::function<void(const StageStatus&)> report;
};

struct StageResult {
  std::string message;
  std::optional<gs::TrainResult> training;
};

// A stage: it may change the project's record, which the pipeline takes over when it succeeds. Runs on the pipeline's
// worker. Throws a whole sentence, or Cancelled when the run was asked to end.
using StageBody = std::function<StageResult(Project& project, const StageContext& context)>;
using StageBodies = std::array<StageBody, kStageCount>;

// The real ones. In a build without media the first two end in a sentence that says so.
StageResult prepareFrames(Project& project, const StageContext& context);
StageResult solveCameras(Project& project, const StageContext& context);
StageResult trainSplats(Project& project, const StageContext& context);

}  // namespace quor
