// A trainer without a GPU: its job runs until the test ends it or a stop or cancellation does.
#pragma once

#include <condition_variable>
#include <mutex>
#include <optional>
#include <string>

#include "gs/training_service.h"

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
    end([this] {
      gs::TrainResult result;
      result.steps = status_.step;
      result.stopped = true;
      result_ = result;
      status_.state = gs::TrainState::Stopped;
    });
  }
  void cancel() override {
    end([this] {
      status_.state = gs::TrainState::Stopped;
      status_.text = "Cancelled";
    });
  }
  bool running() const override {
    const std::lock_guard lock(mutex_);
    return running_;
  }
  gs::TrainStatus status() const override {
    const std::lock_guard lock(mutex_);
    return status_;
  }
  std::optional<gs::TrainResult> wait() override {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return !running_; });
    return result_;
  }

  // The test's side.
  void waitUntilStarted() {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return running_; });
  }
  void setStatus(const gs::TrainStatus& status) {
    const std::lock_guard lock(mutex_);
    status_ = status;
  }
  void finish(const gs::TrainResult& result) {
    end([&] {
      result_ = result;
      status_.state = gs::TrainState::Done;
    });
  }
  void fail(const std::string& sentence) {
    end([&] {
      status_.state = gs::TrainState::Failed;
      status_.text = sentence;
    });
  }
  gs::TrainJob job() const {
    const std::lock_guard lock(mutex_);
    return job_;
  }
  int starts() const {
    const std::lock_guard lock(mutex_);
    return starts_;
  }

 private:
  template <class Change>
  void end(Change change) {
    const std::lock_guard lock(mutex_);
    if (!running_) return;
    change();
    running_ = false;
    changed_.notify_all();
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
