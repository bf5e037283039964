#include "gs/train/engine.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <exception>
#include <filesystem>
#include <fstream>
#include <new>
#include <stdexcept>

#include "base/crash/crash_handler.h"
#include "base/failures.h"
#include "base/files/paths.h"
#include "base/text/text.h"
#include "gs/data/dataset.h"
#include "gs/files/checkpoint.h"
#include "gs/files/eval_report.h"
#include "gs/files/ply.h"
#include "gs/files/splat_file.h"
#include "gs/splat_kernels.h"
#include "gs/splats/live_scene.h"
#include "gs/splats/splat_cap.h"
#include "gs/train/checkpoint_writer.h"
#include "gs/train/evaluation.h"
#include "gs/train/resume.h"
#include "gs/train/run_log.h"
#include "gs/train/schedule.h"
#include "gs/train/trainer.h"

namespace quor::gs {
namespace fs = std::filesystem;
namespace {

constexpr auto kReportEvery = std::chrono::milliseconds(100);
// How fast the shown step time forgets.
constexpr double kStepTimeAverage = 0.05;

using Clock = std::chrono::steady_clock;

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

// The longest edge that images are loaded at (0 = their own): what was asked for, unless the device cannot hold the
// statistics of an image that large.
int loadResolution(const TrainJob& job, const VulkanContext& context) {
  const double side = std::floor(std::sqrt(static_cast<double>(mostPixels(deviceLimits(context)))));
  const int most = static_cast<int>(std::min(side, 65535.0));
  return job.resolution == 0 ? most : std::min(job.resolution, most);
}

// Said when the device was the reason that images are smaller than asked for.
void warnOfLimit(const TrainJob& job, const Dataset& dataset, int loaded, LogStore& log) {
  const auto atLimit = [&](const View& v) { return std::max(v.camera.width, v.camera.height) == loaded; };
  const bool limited =
      loaded != job.resolution && (std::any_of(dataset.training.begin(), dataset.training.end(), atLimit));
  if (!limited) return;
  log.warning(formatText("This GPU can train on images of up to %d pixels: larger ones were made smaller.", loaded));
}

// Settings come from a file that people edit.
void warnOfChanges(const TrainJob& asked, const TrainJob& used, LogStore& log) {
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

fs::path checkpointFile(const TrainJob& job) {
  return job.output / "checkpoint.quor";
}

void writeScene(Trainer& trainer, const TrainJob& job, TrainResult& result) {
  const GaussianSet set = trainer.download();
  const std::string comment =
      std::string("Ombrelux ") + techniqueWord(job.technique) + formatText(" iteration %d", trainer.stepsDone());
  if (job.exportPly) {
    writePly(job.output / "scene.ply", set, comment);
    result.ply = job.output / "scene.ply";
  }
  if (job.exportSplat) {
    writeSplat(job.output / "scene.splat", set);
    result.splat = job.output / "scene.splat";
  }
}

}  // namespace

Engine::Engine(VulkanContext& context, LogStore& log, LiveScene* live)
    : context_(context), registry_(context, {splatKernels()}), log_(log), live_(live) {}

Engine::~Engine() {
  cancel();
  if (thread_.joinable()) thread_.join();
}

template <class Change>
void Engine::update(Change change) {
  const std::lock_guard lock(mutex_);
  change(status_);
}

void Engine::report(TrainState state, std::string text) {
  update([&](TrainStatus& s) {
    s.state = state;
    s.text = std::move(text);
  });
}

TrainStatus Engine::status() const {
  const std::lock_guard lock(mutex_);
  return status_;
}

void Engine::throwIfCancelled() const {
  if (cancel_) throw Cancelled();
}

void Engine::startTraining(TrainJob job) {
  if (running_) throw std::logic_error("A training job is running already");
  if (thread_.joinable()) thread_.join();
  {
    const std::lock_guard lock(mutex_);
    status_ = {};
    status_.state = TrainState::Loading;
    status_.text = "Loading the images";
    result_.reset();
  }
  stop_ = false;
  cancel_ = false;
  running_ = true;
  thread_ = std::thread([this, job = std::move(job)] {
    const ThreadCrashStack stack;
    runTraining(job);
    running_ = false;
  });
}

std::optional<TrainResult> Engine::wait() {
  if (thread_.joinable()) thread_.join();
  const std::lock_guard lock(mutex_);
  return result_;
}

void Engine::runTraining(const TrainJob& asked) {
  try {
    TrainJob job = resolved(asked);
    warnOfChanges(asked, job, log_);
    job.liveView = job.liveView && live_ != nullptr;
    if (live_ != nullptr) live_->clear();
    makeWritable(job.output);
    int resumedFrom = 0;
    if (job.resume) {
      report(TrainState::Loading, "Loading the checkpoint");
      const CheckpointHeader header = readCheckpointHeader(checkpointFile(job));
      job = continuedJob(job, header);
      requireRoom(header, deviceLimits(context_));
      resumedFrom = static_cast<int>(header.step);
    }
    const int resolution = loadResolution(job, context_);
    update([&](TrainStatus& s) { s.iterations = job.iterations; });
    const Dataset dataset =
        loadDataset({job.dataset, resolution, job.evalMode, job.testEvery, {}, {}, {job.output, 0}}, log_, cancel_,
                    [&](size_t done, size_t total) {
                      report(TrainState::Loading, formatText("Loading the images: %zu of %zu", done, total));
                    });
    throwIfCancelled();
    warnOfLimit(job, dataset, resolution, log_);
    const TrainResult result = train(job, dataset);
    writeRunLog(job, result, resumedFrom);
    const std::lock_guard lock(mutex_);
    result_ = result;
    status_.state = result.stopped ? TrainState::Stopped : TrainState::Done;
    status_.text = result.stopped ? "Stopped early (exported)" : "Done";
  } catch (const std::exception& e) {
    const Outcome outcome = cancel_ ? Outcome::Cancelled : outcomeOf(e);
    std::string text = e.what();
    if (outcome == Outcome::Cancelled) text = Cancelled().what();
    if (outcome == Outcome::OutOfMemory) {
      text = "The computer's memory is not enough. Lower the training resolution or the splat budget.";
    }
    update([&](TrainStatus& s) {
      s.state = outcome == Outcome::Cancelled ? TrainState::Stopped : TrainState::Failed;
      s.text = text;
      s.outcome = outcome;
    });
  }
}

TrainResult Engine::train(const TrainJob& job, const Dataset& dataset) {
  std::optional<Checkpoint> checkpoint;
  if (job.resume) {
    report(TrainState::Loading, "Loading the checkpoint");
    checkpoint = readCheckpoint(checkpointFile(job));
  }
  report(TrainState::Loading, "Building the GPU kernels");
  Trainer trainer(context_, registry_, log_, job, dataset);
  if (checkpoint) {
    trainer.resume(*checkpoint);
    checkpoint.reset();
  } else {
    trainer.start();
  }
  TrainResult result;
  try {
    trainSteps(trainer, job, result);
  } catch (const std::exception& e) {
    if (cancel_) throw;
    throwAs(outcomeOf(e), std::string("Training failed: ") + e.what());
  }
  result.splats = trainer.splats();
  result.steps = trainer.stepsDone();
  exportScene(trainer, job, result);
  removeEvalReport(job.output / "eval");
  if (!dataset.heldOut.empty()) result.evaluation = scoreHeldOut(trainer, job.output / "eval");
  return result;
}

EvalResult Engine::scoreHeldOut(Trainer& trainer, const fs::path& folder) {
  report(TrainState::Evaluating, "Scoring the held-out views");
  EvalReport written(folder);
  const EvalResult result = trainer.evaluate(cancel_, [&](const LoadedView& view, const ImageScores& scores,
                                                          const Image& render) { written.add(view, scores, render); });
  log_.info(describe(result));
  try {
    written.finish();
  } catch (const std::exception& e) {
    log_.warning(std::string("Could not write the held-out report: ") + e.what());
  }
  return result;
}

void Engine::trainSteps(Trainer& trainer, const TrainJob& job, TrainResult& result) {
  const auto start = Clock::now();
  auto stepStart = start;
  auto lastReport = start - kReportEvery;
  double stepSeconds = 0;
  CheckpointWriter writer(context_, checkpointFile(job), job.checkpointSeconds, log_);
  update([&](TrainStatus& s) {
    s.state = TrainState::Training;
    s.text = "Training";
    s.step = trainer.stepsDone();
    s.splats = trainer.splats();
  });
  // A stop before the first step must not put an untrained scene in the place of an earlier one.
  if (job.liveView) trainer.show(*live_);
  do {
    throwIfCancelled();
    trainer.step();
    if (job.liveView) trainer.show(*live_);
    // The last step's is written with the exports.
    if (!trainer.finished() && !stop_ && writer.due(trainer.nothingAccumulated())) {
      writer.start(trainer.splats(), [&](SplatSnapshot& copy) { return trainer.checkpoint(copy); });
    }
    const auto now = Clock::now();
    const double seconds = std::chrono::duration<double>(now - stepStart).count();
    stepStart = now;
    stepSeconds = stepSeconds == 0 ? seconds : stepSeconds + kStepTimeAverage * (seconds - stepSeconds);
    if (now - lastReport < kReportEvery && !trainer.finished()) continue;
    lastReport = now;
    update([&](TrainStatus& s) {
      s.step = trainer.stepsDone();
      s.splats = trainer.splats();
      s.loss = trainer.loss();
      s.msPerStep = 1000 * stepSeconds;
      s.secondsLeft = stepSeconds * (job.iterations - trainer.stepsDone());
    });
  } while (!trainer.finished() && !stop_);
  throwIfCancelled();
  result.seconds = secondsSince(start);
  result.stopped = !trainer.finished();
  update([&](TrainStatus& s) {
    s.step = trainer.stepsDone();
    s.splats = trainer.splats();
    s.loss = trainer.loss();
    s.secondsLeft = 0;
  });
  if (result.stopped) log_.info(formatText("Training stopped at step %d; exporting anyway.", trainer.stepsDone()));
}

void Engine::exportScene(Trainer& trainer, const TrainJob& job, TrainResult& result) {
  report(TrainState::Exporting, "Writing the scene");
  // A scene that cannot be written must not cost the training as well.
  std::exception_ptr failure;
  try {
    writeScene(trainer, job, result);
  } catch (const std::exception&) {
    failure = std::current_exception();
  }
  report(TrainState::Exporting, "Writing the checkpoint");
  try {
    writeCheckpoint(checkpointFile(job), trainer.checkpoint());
    result.checkpoint = checkpointFile(job);
  } catch (const std::exception& e) {
    log_.warning(std::string("Could not write the checkpoint: ") + e.what());
  }
  if (failure) std::rethrow_exception(failure);
}

void Engine::writeRunLog(const TrainJob& job, const TrainResult& result, int resumedFrom) const {
  RunLogEntry entry;
  entry.title = std::string("Training with ") + techniqueWord(job.technique);
  entry.result = result.stopped ? TrainState::Stopped : TrainState::Done;
  entry.technique = job.technique;
  entry.steps = result.steps;
  entry.iterations = job.iterations;
  entry.resumedFrom = resumedFrom;
  entry.splats = result.splats;
  entry.budget = job.splatBudget;
  entry.seconds = result.seconds;
  entry.msPerStep = 1000 * result.seconds / std::max(result.steps - resumedFrom, 1);
  entry.resolution = job.resolution;
  entry.downscaleLevels = job.downscaleLevels;
  entry.shDegree = job.shDegree;
  entry.evaluation = result.evaluation;
  entry.device = context_.info().name;
  if (result.ply) entry.scene = toUtf8(*result.ply);
  if (!appendRunLog(job.output / "training.log", entry)) {
    log_.warning("Could not write " + toUtf8(job.output / "training.log"));
  }
}

}  // namespace quor::gs
