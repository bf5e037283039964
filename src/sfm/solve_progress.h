// Turns the progress of the steps into that of the whole solve: one message a step, a fraction that never goes back.
#pragma once

#include <algorithm>
#include <functional>
#include <string>
#include <utility>

namespace quor {

class SolveProgress {
 public:
  // `fraction` is 0..1 of the whole solve; `part` counts the steps from 1.
  using Report = std::function<void(const std::string& message, float fraction, int part)>;
  explicit SolveProgress(Report report) : report_(std::move(report)) {}

  // A step that takes the solve from one fraction to another.
  void begin(std::string message, float from, float to) {
    ++part_;
    message_ = std::move(message);
    from_ = from;
    to_ = to;
    advance(0);
  }
  void advance(float ofStep) {
    reached_ = std::max(reached_, from_ + (to_ - from_) * std::clamp(ofStep, 0.0f, 1.0f));
    report_(message_, reached_, part_);
  }

 private:
  Report report_;
  int part_ = 0;
  std::string message_;
  float from_ = 0, to_ = 0;
  float reached_ = 0;
};

}  // namespace quor
