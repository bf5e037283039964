// The one object that a running job and those who watch it share: the job writes its status here and reads the requests
// to stop or cancel, from its thread; everybody else does the reverse, from any thread.
#pragma once

#include <atomic>
#include <mutex>
#include <string>

#include "gs/train/train_job.h"

namespace quor::gs {

class RunControl {
 public:
  TrainStatus status() const;

  // Ends the job after the current step with an export. Before the first step there is nothing to export that should
  // replace earlier results: then it is cancel().
  void requestStop();
  void cancel() { cancel_ = true; }

  // For the job. throwIfCancelled() and beginSteps() throw Cancelled.
  void throwIfCancelled() const;
  void beginSteps();
  bool mustStop() const { return stop_; }
  const std::atomic<bool>& cancelled() const { return cancel_; }
  void report(TrainState state, std::string text);
  template <class Change>
  void update(Change change) {
    const std::lock_guard lock(mutex_);
    change(status_);
  }

  // For the next job.
  void reset();

 private:
  mutable std::mutex mutex_;  // guards status_ and stepping_
  TrainStatus status_;
  bool stepping_ = false;
  std::atomic<bool> stop_ = false;
  std::atomic<bool> cancel_ = false;
};

}  // namespace quor::gs
