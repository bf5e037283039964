#include "gs/train/training_run.h"

#include <algorithm>
#include <cmath>
#include <fstream>
#include <stdexcept>

#include "base/failures.h"
#include "base/files/paths.h"
#include "base/text/text.h"
#include "gpu/compute/kernel_registry.h"
#include "gpu/device/vulkan_context.h"
#include "gs/data/dataset.h"
#include "gs/files/eval_report.h"
#include "gs/render/blend_trial.h"
#include "gs/splats/live_scene.h"
#include "gs/splats/splat_cap.h"
#include "gs/train/checkpoint_writer.h"
#include "gs/train/evaluation.h"
#include "gs/train/resume.h"
#include "gs/train/run_log.h"
#include "gs/train/scene_export.h"
#include "gs/train/schedule.h"
#include "gs/train/trainer.h"

namespace quor::gs {
namespace fs = std::filesystem;
namespace {

using Clock = std::chrono::steady_clock;

constexpr auto kReportEvery = std::chrono::milliseconds(100);
// EMA weight of the displayed step time.
constexpr double kStepTimeAverage = 0.05;
// After GPU memory ran out: the first attempt adds no more splats, each further one also halves the images.
constexpr int kMaxRetries = 4;

double secondsSince(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

// Fails now rather than after hours of training when nothing can be written there.
void makeWritable(const fs::path& folder) {
  std::error_code error;
  fs::create_directories(folder, error);
  const fs::path probe = folder / "write_test.partial";
  const bool written = [&] {
    std::ofstream file(probe, std::ios::binary);
    file << "x";
    file.flush();
    return file.good();
  }();
  fs::remove(probe, error);
  if (!written) {
    throw std::runtime_error("Cannot write to " + toUtf8(folder) + ". Check that the disk is not full or read-only.");
  }
}

// The longest edge that images are loaded at (0 = their own): as asked for, unless the device cannot hold the
// statistics of an image that large.
int loadResolution(const TrainJob& job, const VulkanContext& context) {
  const double side = std::floor(std::sqrt(static_cast<double>(mostPixels(deviceLimits(context)))));
  const int most = static_cast<int>(std::min(side, 65535.0));
  return job.resolution == 0 ? most : std::min(job.resolution, most);
}

// Warns when the device was the reason that images are smaller than asked for.
void warnOfLimit(const TrainJob& job, const Dataset& dataset, int loaded, LogStore& log) {
  const auto atLimit = [&](const View& v) { return std::max(v.camera.width, v.camera.height) == loaded; };
  const bool limited =
      loaded != job.resolution && std::any_of(dataset.training.begin(), dataset.training.end(), atLimit);
  if (!limited) return;
  log.warning(formatText("This GPU can train on images of up to %d pixels: larger ones were made smaller.", loaded));
}

}  // namespace

std::string trainingFailureText(const std::exception& error) {
  if (outcomeOf(error) != Outcome::OutOfMemory) return error.what();
  return "The computer's memory is not enough. Lower the training resolution or the splat budget.";
}

TrainingRun::TrainingRun(VulkanContext& context, KernelRegistry& registry, LogStore& log, LiveScene* live,
                         RunControl& control, const TrainJob& job)
    : context_(context), registry_(registry), log_(log), live_(live), control_(control), job_(resolved(job)) {
  job_.liveView = job_.liveView && live_ != nullptr;
}

TrainResult TrainingRun::run() {
  if (live_ != nullptr) live_->clear();
  makeWritable(job_.output.folder);
  try {
    const Dataset dataset = load();
    train(dataset);
  } catch (const std::exception& e) {
    const bool cancelled = control_.cancelled() || outcomeOf(e) == Outcome::Cancelled;
    writeRunLog(cancelled ? TrainState::Stopped : TrainState::Failed, cancelled ? "" : trainingFailureText(e));
    throw;
  }
  writeRunLog(result_.stopped ? TrainState::Stopped : TrainState::Done, "");
  return result_;
}

// Looks at the checkpoint first: a run that cannot continue must not load a dataset to find out.
Dataset TrainingRun::load() {
  if (job_.resume) {
    control_.report(TrainState::Loading, "Loading the checkpoint");
    const CheckpointHeader header = readCheckpointHeader(job_.output.checkpoint);
    job_ = continuedJob(job_, header);
    requireRoom(header, deviceLimits(context_));
    resumedFrom_ = result_.steps = static_cast<int>(header.step);
    result_.splats = header.count;
  }
  const int resolution = loadResolution(job_, context_);
  control_.update([&](TrainStatus& s) { s.iterations = job_.iterations; });
  Dataset dataset =
      loadDataset({job_.dataset, resolution, job_.evalMode, job_.testEvery, {}, {}, {job_.output.folder, 0}}, log_,
                  control_.cancelled(), [&](size_t done, size_t total) {
                    control_.report(TrainState::Loading, formatText("Loading the images: %zu of %zu", done, total));
                  });
  control_.throwIfCancelled();
  warnOfLimit(job_, dataset, resolution, log_);
  return dataset;
}

void TrainingRun::train(const Dataset& dataset) {
  std::optional<Checkpoint> from;
  if (job_.resume) {
    control_.report(TrainState::Loading, "Loading the checkpoint");
    from = readCheckpoint(job_.output.checkpoint);
  }
  control_.report(TrainState::Loading, "Building the GPU kernels");
  const Renderer::Variants variants = variantsByTrial(context_, registry_, log_);
  while (true) {
    try {
      trainOnce(dataset, variants, from);
      return;
    } catch (const OutOfGpuMemory&) {
      if (!from || retries_ == kMaxRetries) throw;
    }
    makeSmaller(from->header.count);
  }
}

// When GPU memory runs out after the first step, `from` is what there was and the exception goes on.
void TrainingRun::trainOnce(const Dataset& dataset, const Renderer::Variants& variants,
                            std::optional<Checkpoint>& from) {
  Trainer trainer(context_, registry_, log_, job_, dataset, variants);
  if (from) {
    trainer.resume(*from);
    from.reset();
  } else {
    trainer.start();
  }
  control_.beginSteps();
  try {
    takeSteps(trainer);
  } catch (const std::exception& e) {
    if (control_.cancelled()) throw;
    if (outcomeOf(e) == Outcome::OutOfGpuMemory) {
      log_.warning(formatText("GPU memory ran out at step %d: ", trainer.stepsDone()) + e.what());
      saveAfterFailure(trainer, from);
    }
    throwAs(outcomeOf(e), std::string("Training failed: ") + e.what());
  }
  finish(trainer, dataset);
}

void TrainingRun::takeSteps(Trainer& trainer) {
  const auto start = Clock::now();
  const double secondsBefore = result_.seconds;
  auto stepStart = start;
  auto lastReport = start - kReportEvery;
  double stepSeconds = 0;
  CheckpointWriter writer(context_, job_.output.checkpoint, job_.checkpointSeconds, log_);
  control_.report(TrainState::Training, "Training");
  showProgress(trainer, 0);
  if (job_.liveView) trainer.show(*live_);
  do {
    control_.throwIfCancelled();
    trainer.step();
    result_.seconds = secondsBefore + secondsSince(start);
    result_.steps = trainer.stepsDone();
    result_.splats = trainer.splats();
    if (job_.liveView) trainer.show(*live_);
    // The last step's checkpoint is written with the exports.
    if (!trainer.finished() && !control_.mustStop() && writer.due(trainer.nothingAccumulated())) {
      writer.start(trainer.splats(), [&](SplatSnapshot& copy) { return trainer.checkpoint(copy); });
    }
    const auto now = Clock::now();
    const double seconds = std::chrono::duration<double>(now - stepStart).count();
    stepStart = now;
    stepSeconds = stepSeconds == 0 ? seconds : stepSeconds + kStepTimeAverage * (seconds - stepSeconds);
    if (now - lastReport < kReportEvery && !trainer.finished()) continue;
    lastReport = now;
    showProgress(trainer, stepSeconds);
  } while (!trainer.finished() && !control_.mustStop());
  control_.throwIfCancelled();
  result_.stopped = !trainer.finished();
  showProgress(trainer, stepSeconds);
  control_.update([](TrainStatus& s) { s.secondsLeft = 0; });
  if (result_.stopped) log_.info(formatText("Training stopped at step %d; exporting anyway.", trainer.stepsDone()));
}

// `stepSeconds` 0 while unknown.
void TrainingRun::showProgress(const Trainer& trainer, double stepSeconds) {
  control_.update([&](TrainStatus& s) {
    s.step = trainer.stepsDone();
    s.splats = trainer.splats();
    if (stepSeconds == 0) return;
    s.loss = trainer.loss();
    s.msPerStep = 1000 * stepSeconds;
    s.secondsLeft = stepSeconds * (job_.iterations - trainer.stepsDone());
  });
}

void TrainingRun::saveAfterFailure(Trainer& trainer, std::optional<Checkpoint>& from) {
  if (trainer.stepsDone() == resumedFrom_) return;  // the earlier results are as good
  try {
    removeEvalReport(job_.output.evaluation);
    Checkpoint saved = exportTraining(trainer, job_, control_, log_, result_);
    if (saved.header.count == 0) return;
    log_.info(formatText("The scene of step %d is exported.", trainer.stepsDone()));
    from = std::move(saved);
  } catch (const std::exception& e) {
    log_.warning(std::string("The scene so far could not be exported: ") + e.what());
  }
}

void TrainingRun::makeSmaller(uint64_t splats) {
  ++retries_;
  job_.splatBudget = splats;
  if (retries_ > 1) ++job_.finestLevel;
  if (live_ != nullptr) live_->clear();
  std::string text = formatText("Training goes on with at most %llu splats", static_cast<unsigned long long>(splats));
  if (job_.finestLevel > 0) text += formatText(" and images of 1/%d of their size", 1 << job_.finestLevel);
  log_.warning(text + ".");
  control_.report(TrainState::Loading, "Starting again with less GPU memory");
}

void TrainingRun::finish(Trainer& trainer, const Dataset& dataset) {
  exportTraining(trainer, job_, control_, log_, result_);
  removeEvalReport(job_.output.evaluation);
  if (dataset.heldOut.empty()) return;
  try {
    result_.evaluation = scoreHeldOut(trainer);
  } catch (const OutOfGpuMemory& e) {  // the full size may need more than training did
    log_.warning(std::string("The held-out views could not be scored: ") + e.what());
  }
}

EvalResult TrainingRun::scoreHeldOut(Trainer& trainer) {
  control_.report(TrainState::Evaluating, "Scoring the held-out views");
  EvalReport written(job_.output.evaluation);
  const EvalResult result = trainer.evaluate(
      control_.cancelled(), [&](const std::string& view, const Image& photograph, const ImageScores& scores,
                                const Image& render) { written.add(view, photograph, scores, render); });
  log_.info(describe(result));
  try {
    written.finish();
  } catch (const std::exception& e) {
    log_.warning(std::string("Could not write the held-out report: ") + e.what());
  }
  return result;
}

void TrainingRun::writeRunLog(TrainState outcome, const std::string& reason) const {
  RunLogEntry entry;
  entry.title = std::string("Training with ") + techniqueWord(job_.technique);
  entry.result = outcome;
  entry.technique = job_.technique;
  entry.steps = result_.steps;
  entry.iterations = job_.iterations;
  entry.resumedFrom = resumedFrom_;
  entry.splats = result_.splats;
  entry.budget = job_.splatBudget;
  entry.seconds = result_.seconds;
  entry.msPerStep = 1000 * result_.seconds / std::max(result_.steps - resumedFrom_, 1);
  entry.resolution = job_.resolution;
  entry.downscaleLevels = job_.downscaleLevels;
  entry.shDegree = job_.shDegree;
  entry.evaluation = result_.evaluation;
  entry.device = context_.info().name;
  if (result_.ply) entry.scene = toUtf8(*result_.ply);
  entry.reason = reason;
  if (!appendRunLog(job_.output.log, entry)) log_.warning("Could not write " + toUtf8(job_.output.log));
}

}  // namespace quor::gs
