#include "gs/train/engine.h"

#include <stdexcept>
#include <utility>

#include "base/crash/crash_handler.h"
#include "base/failures.h"
#include "gs/splat_kernels.h"
#include "gs/train/training_run.h"

namespace quor::gs {

Engine::Engine(VulkanContext& context, LogStore& log, LiveScene* live)
    : context_(context), registry_(context, {splatKernels()}), log_(log), live_(live) {}

Engine::~Engine() {
  cancel();
  if (thread_.joinable()) thread_.join();
}

void Engine::startTraining(TrainJob job) {
  if (running_) throw std::logic_error("A training job is running already");
  if (thread_.joinable()) thread_.join();
  result_.reset();
  control_.reset();
  running_ = true;
  thread_ = std::thread([this, job = std::move(job)] {
    const ThreadCrashStack stack;
    runTraining(job);
    running_ = false;
  });
}

std::optional<TrainResult> Engine::wait() {
  if (thread_.joinable()) thread_.join();
  return result_;
}

void Engine::runTraining(const TrainJob& job) {
  try {
    TrainingRun run(context_, registry_, log_, live_, control_, job);
    result_ = run.run();
    const bool stopped = result_->stopped;
    control_.report(stopped ? TrainState::Stopped : TrainState::Done, stopped ? "Stopped early (exported)" : "Done");
  } catch (const std::exception& e) {
    const Outcome outcome = control_.cancelled() ? Outcome::Cancelled : outcomeOf(e);
    control_.update([&](TrainStatus& s) {
      s.state = outcome == Outcome::Cancelled ? TrainState::Stopped : TrainState::Failed;
      s.text = outcome == Outcome::Cancelled ? Cancelled().what() : trainingFailureText(e);
      s.outcome = outcome;
    });
  }
}

}  // namespace quor::gs
