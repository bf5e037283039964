// Cameras to a scene: hands the project's job to the trainer and follows it.
#include <algorithm>
#include <chrono>
#include <stdexcept>

#include "base/text/text.h"
#include "colmap/model.h"
#include "gs/files/checkpoint.h"
#include "gs/train/schedule.h"
#include "pipeline/pipeline.h"
#include "pipeline/result_document.h"

namespace quor {

namespace {

constexpr std::chrono::milliseconds kTrainingPoll{50};

// A run that is told to continue must not start over by accident, nor load the dataset only to be refused.
void checkResume(const Project& project, LogStore& log) {
  uint32_t step = 0;
  try {
    step = gs::readCheckpointHeader(project.checkpointFile()).step;
  } catch (const std::exception& error) {
    std::error_code ignored;
    if (std::filesystem::exists(project.checkpointFile(), ignored)) log.warning(error.what());
    throw std::runtime_error(
        "Continue from checkpoint is on, but there is no readable checkpoint.quor in output/. Turn it off to train "
        "from the start.");
  }
  if (static_cast<int64_t>(step) >= std::max(project.training.iterations, 1)) {
    throw std::runtime_error(formatText(
        "The checkpoint is already at step %u. Set more iterations than that to continue training it.", step));
  }
}

// Settings come from a file that people edit.
void warnOfChanges(const gs::TrainJob& asked, LogStore& log) {
  const gs::TrainJob used = gs::withinRange(asked);
  const auto compare = [&](const char* name, double before, double now) {
    if (before != now) log.warning(formatText("The setting %s cannot be %g: %g is used.", name, before, now));
  };
  compare("iterations", asked.iterations, used.iterations);
  compare("trainingResolution", asked.resolution, used.resolution);
  compare("numDownscales", asked.downscaleLevels, used.downscaleLevels);
  compare("refineEvery", asked.refineEvery, used.refineEvery);
  compare("ssimWeight", static_cast<double>(asked.ssimWeight), static_cast<double>(used.ssimWeight));
  for (size_t c = 0; c < 3; ++c) {
    compare("background", static_cast<double>(asked.background[c]), static_cast<double>(used.background[c]));
  }
}

StageStatus describeTraining(const gs::TrainStatus& status) {
  StageStatus stage{StageState::Running, status.text};
  stage.part = 2 + static_cast<int32_t>(status.state);
  stage.total = status.iterations;
  if (status.state == gs::TrainState::Training && status.step > 0) {
    stage.step = status.step;
    stage.secondsLeft = status.secondsLeft;
    stage.message = formatText("Step %d of %d", status.step, status.iterations);
    if (status.loss == status.loss) stage.message += formatText(", loss %f", static_cast<double>(status.loss));
    if (status.iterations > 0) {
      stage.fraction = std::min(1.0f, static_cast<float>(status.step) / static_cast<float>(status.iterations));
    }
  }
  return stage;
}

std::string describeResult(const gs::TrainResult& result) {
  if (result.stopped) return formatText("Stopped at step %d, exported", result.steps);
  std::string text = std::to_string(result.splats) + " splats";
  if (result.evaluation.views > 0) text += formatText(", PSNR %.2f", static_cast<double>(result.evaluation.psnr));
  return text;
}

// Passes requests on to the trainer and its status on to the stage record until the job has ended. Returns whether the
// job was cancelled.
bool followTraining(const StageContext& context) {
  using Request = PipelineRun::Request;
  gs::TrainingService& trainer = context.trainer;
  Request passedOn = Request::None;
  while (trainer.running()) {
    const gs::TrainStatus status = trainer.status();
    const Request request = context.run.request();
    if (request > passedOn) request == Request::Cancel ? trainer.cancel() : trainer.requestStop();
    passedOn = std::max(passedOn, request);
    if (const StageStatus now = describeTraining(status); !now.message.empty()) context.report(now);
    context.run.waitForRequest(passedOn, kTrainingPoll);
  }
  return passedOn == Request::Cancel;
}

void requireCameras(const Project& project, const gs::TrainJob& job) {
  std::error_code ignored;
  if (!project.externalDataset.empty() && !std::filesystem::exists(job.dataset, ignored)) {
    throw std::runtime_error("The dataset of this project, " + project.externalDataset +
                             ", is no longer there. Move it back, or import it from where it is now.");
  }
  // The trainer itself names the folder of a wrapped dataset that has lost its model.
  if (project.externalDataset.empty() && gs::colmap::findModelDir(job.dataset).empty()) {
    throw std::runtime_error("There is no camera solve to train from. Run Camera solve first.");
  }
}

}  // namespace

StageResult trainSplats(Project& project, const StageContext& context) {
  gs::TrainJob job = makeTrainJob(project);
  requireCameras(project, job);
  if (job.resume) checkResume(project, context.log);
  warnOfChanges(job, context.log);
  const std::string start = formatText("%d iterations", std::max(job.iterations, 1));
  context.report({.state = StageState::Running, .message = start, .part = 1});
  context.log.info(std::string(stageName(Stage::Train)) + ": " + start);

  context.trainer.startTraining(std::move(job));
  const bool cancelled = followTraining(context);
  const std::optional<gs::TrainResult> result = context.trainer.wait();
  if (!result) {
    if (cancelled) throw Cancelled();
    const gs::TrainStatus status = context.trainer.status();
    throwAs(status.outcome, status.text);
  }
  try {
    saveResult(project, *result);
    saveGeoreference(project);
  } catch (const std::exception& error) {
    context.log.warning(error.what());
  }
  return {describeResult(*result), result};
}

}  // namespace quor
