// A trainer without a GPU: its job runs until the test ends it or a stop or cancellation does.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>

#include "gs/train/training_service.h"

namespace quor::test {

class FakeTrainer : public gs::TrainingService {
 public:
  void startTraining(gs::TrainJob job) override {
    const std::lock_guard lock(mutex_);
    job_ = std::move(job);
    ++starts_;
    running_ = true;
    result_.reset();
    status_ = {};
    status_.state = gs::TrainState::Training;
    status_.iterations = job_.iterations;
    changed_.notify_all();
  }
  void requestStop() override {
    if (status().state == gs::TrainState::Loading) return cancel();  // as the engine does
    gs::TrainResult result;
    result.steps = status().step;
    result.stopped = true;
    end(gs::TrainState::Stopped, result);
  }
  void cancel() override { end(gs::TrainState::Stopped, {}, "Cancelled", Outcome::Cancelled); }
  bool running() const override { return locked(running_); }
  gs::TrainStatus status() const override { return locked(status_); }
  std::optional<gs::TrainResult> wait() override {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return !running_; });
    return result_;
  }

  // The test's side.
  void waitUntilStarted() {
    std::unique_lock lock(mutex_);
    const bool started = changed_.wait_for(lock, std::chrono::minutes(1), [this] { return running_; });
    if (!started) throw std::runtime_error("Training was never asked for.");
  }
  void setStatus(const gs::TrainStatus& status) {
    const std::lock_guard lock(mutex_);
    status_ = status;
  }
  void end(gs::TrainState state, const std::optional<gs::TrainResult>& result, const std::string& text = {},
           Outcome outcome = Outcome::Failed) {
    const std::lock_guard lock(mutex_);
    if (!running_) return;
    status_.state = state;
    status_.text = text;
    status_.outcome = result ? Outcome::Success : outcome;
    result_ = result;
    running_ = false;
    changed_.notify_all();
  }
  gs::TrainJob job() const { return locked(job_); }
  int starts() const { return locked(starts_); }

 private:
  template <class T>
  T locked(const T& member) const {
    const std::lock_guard lock(mutex_);
    return member;
  }

  mutable std::mutex mutex_;
  std::condition_variable changed_;
  gs::TrainJob job_;
  gs::TrainStatus status_;
  std::optional<gs::TrainResult> result_;
  bool running_ = false;
  int starts_ = 0;
};

}  // namespace quor::test
