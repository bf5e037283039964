#include "gs/train/run_control.h"

#include <utility>

namespace quor::gs {

TrainStatus RunControl::status() const {
  const std::lock_guard lock(mutex_);
  return status_;
}

void RunControl::requestStop() {
  const std::lock_guard lock(mutex_);
  (stepping_ ? stop_ : cancel_) = true;
}

void RunControl::throwIfCancelled() const {
  if (cancel_) throw Cancelled();
}

void RunControl::beginSteps() {
  const std::lock_guard lock(mutex_);
  throwIfCancelled();
  stepping_ = true;
}

void RunControl::report(TrainState state, std::string text) {
  update([&](TrainStatus& status) {
    status.state = state;
    status.text = std::move(text);
  });
}

void RunControl::reset() {
  const std::lock_guard lock(mutex_);
  status_ = {};
  status_.state = TrainState::Loading;
  status_.text = "Loading the images";
  stepping_ = false;
  stop_ = false;
  cancel_ = false;
}

}  // namespace quor::gs
