#include "ui/models/batch/batch_run.h"

#include "base/crash/crash_handler.h"
#include "base/failures.h"

namespace quor::ui {

BatchRun::BatchRun(Batch batch, std::unique_ptr<Pipeline> pipeline, gs::TrainingService& trainer, LogStore& log)
    : trainer_(trainer),
      log_(log),
      pipeline_(std::move(pipeline)),
      queue_(std::move(batch), [this](size_t, BatchEvent event) { atWork_ = event == BatchEvent::Working; }),
      thread_([this] { run(); }) {}

BatchRun::~BatchRun() {
  queue_.cancelAtOnce();
  thread_.join();
}

void BatchRun::run() {
  const ThreadCrashStack stack;
  try {
    queue_.run(*pipeline_, trainer_, log_);
  } catch (const std::exception& error) {
    failure_ = "The batch ended early: " + failureText(error);
    log_.error(failure_);
  }
  running_ = false;
}

void BatchRun::stop() {
  stopping_ = true;
  queue_.cancel();
}

void BatchRun::cancel() {
  stopping_ = true;
  queue_.cancelAtOnce();
}

std::optional<BatchRun::Progress> BatchRun::progress() const {
  const std::optional<size_t> item = queue_.current();
  if (!item || !atWork_) return std::nullopt;
  const Stage stage = pipeline_->currentStage();
  return Progress{*item, stage, pipeline_->status(stage)};
}

}  // namespace quor::ui
