#include "pipeline/pipeline.h"

#include <stdexcept>
#include <utility>

#include "base/crash/crash_handler.h"

namespace quor {

namespace {

size_t indexOf(Stage stage) {
  return static_cast<size_t>(stage);
}

}  // namespace

const char* stageName(Stage stage) {
  switch (stage) {
    case Stage::Frames:
      return "Prepare frames";
    case Stage::Sparse:
      return "Sparse reconstruction";
    case Stage::Train:
      break;
  }
  return "Train Gaussians";
}

Pipeline::Pipeline(gs::TrainingService& trainer, LogStore& log, Tools tools, gs::VulkanContext* gpu)
    : trainer_(trainer), log_(log), tools_(std::move(tools)), gpu_(gpu) {}

Pipeline::~Pipeline() {
  cancel();
  if (worker_.joinable()) worker_.join();
}

void Pipeline::requireIdle() {
  if (busy()) throw std::runtime_error("Finish or cancel the running stage first.");
  if (worker_.joinable()) worker_.join();
}

void Pipeline::resetLocked() {
  stages_ = {};
  current_ = Stage::Frames;
  trainResult_.reset();
}

void Pipeline::open(const Project& project) {
  requireIdle();
  const std::lock_guard lock(mutex_);
  project_ = project;
  resetLocked();
}

void Pipeline::close() {
  requireIdle();
  const std::lock_guard lock(mutex_);
  project_.reset();
  resetLocked();
}

bool Pipeline::start(Stage from, Stage to, Completion completion) {
  if (busy()) return false;
  if (worker_.joinable()) worker_.join();
  {
    const std::lock_guard lock(mutex_);
    if (!project_) return false;
    for (size_t i = indexOf(from); i <= indexOf(to); ++i) stages_[i] = {};
    current_ = from;
    trainResult_.reset();
  }
  cancel_ = false;
  stop_ = false;
  busy_ = true;
  try {
    worker_ = std::thread([this, from, to, done = std::move(completion)] {
      const ThreadCrashStack stack;
      runStages(from, to, done);
    });
  } catch (...) {
    busy_ = false;
    throw;
  }
  return true;
}

void Pipeline::cancel() {
  {
    const std::lock_guard lock(mutex_);  // so that a waiter cannot miss the wake-up between its check and its wait
    cancel_ = true;
  }
  wake_.notify_all();
}

void Pipeline::requestStop() {
  {
    const std::lock_guard lock(mutex_);
    if (inStage_ && current_ == Stage::Train) {
      stop_ = true;
    } else {
      cancel_ = true;
    }
  }
  wake_.notify_all();
}

Stage Pipeline::currentStage() const {
  const std::lock_guard lock(mutex_);
  return current_;
}

StageStatus Pipeline::status(Stage stage) const {
  const std::lock_guard lock(mutex_);
  return stages_[indexOf(stage)];
}

std::optional<Project> Pipeline::project() const {
  const std::lock_guard lock(mutex_);
  return project_;
}

std::optional<gs::TrainResult> Pipeline::trainResult() const {
  const std::lock_guard lock(mutex_);
  return trainResult_;
}

void Pipeline::report(Stage stage, StageState state, const std::string& message, float fraction) {
  const std::lock_guard lock(mutex_);
  stages_[indexOf(stage)] = {state, message, fraction, std::numeric_limits<double>::quiet_NaN()};
  if (state != StageState::Running || !(fraction > 0)) return;
  // By the pace until now, once there is something to go by.
  const double elapsed = std::chrono::duration<double>(std::chrono::steady_clock::now() - stageStart_).count();
  if (elapsed > 2 && fraction > 0.02f) stages_[indexOf(stage)].secondsLeft = elapsed * (1.0 / double{fraction} - 1.0);
}

void Pipeline::runStages(Stage from, Stage to, const Completion& completion) {
  std::string result = "Done";
  bool success = true;
  for (size_t i = indexOf(from); success && i <= indexOf(to); ++i) success = runStage(static_cast<Stage>(i), result);
  if (completion) completion(success, result);
  busy_ = false;
}

bool Pipeline::runStage(Stage stage, std::string& result) {
  try {
    std::optional<Project> project;
    {
      const std::lock_guard lock(mutex_);
      if (!project_) throw std::logic_error("no project");
      // A wrapped dataset has its frames and cameras already.
      const bool skip = !project_->externalDataset.empty() && stage != Stage::Train;
      if (!skip) {
        if (cancel_) throw Cancelled();
        project = project_;
        stages_[indexOf(stage)] = {StageState::Running, "Starting"};
        stageStart_ = std::chrono::steady_clock::now();
        current_ = stage;
        inStage_ = true;
      }
    }
    if (project) {
      const std::string message = runBody(stage, *project);
      report(stage, StageState::Done, message, 1);
    }
  } catch (const std::exception& error) {
    const bool cancelled = cancel_ || error.what() == std::string(Cancelled().what());
    result = cancelled ? Cancelled().what() : error.what();
    report(stage, StageState::Failed, result, -1);
    if (cancelled) {
      log_.warning(std::string(stageName(stage)) + " cancelled");
    } else {
      log_.error(std::string(stageName(stage)) + " failed: " + result);
    }
  }
  const std::lock_guard lock(mutex_);
  inStage_ = false;
  if (stages_[indexOf(stage)].state == StageState::Failed) return false;
  if (cancel_) {
    result = Cancelled().what();
    return false;
  }
  return true;
}

std::string Pipeline::runBody(Stage stage, const Project& project) {
  switch (stage) {
    case Stage::Frames:
      return runFrames(project);
    case Stage::Sparse:
      return runSparse(project);
    case Stage::Train:
      break;
  }
  return runTrain(project);
}

}  // namespace quor
