// The handle of one run of a project's stages: whoever started the run waits on it, asks it to end, and reads its
// result. Any thread may use it, and it may outlive its pipeline.
#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <optional>
#include <string>

#include "base/failures.h"
#include "gs/train/train_job.h"

namespace quor {

struct RunResult {
  Outcome outcome = Outcome::Success;
  std::string text = "Done";                // "Done", "Cancelled" or the sentence of the stage that failed
  std::optional<gs::TrainResult> training;  // of a run that got as far as a scene

  bool success() const { return outcome == Outcome::Success; }
};

class PipelineRun {
 public:
  enum class Request { None, Stop, Cancel };

  // Training ends after the current step and still exports; earlier stages, and training that has not begun to step,
  // are cancelled.
  void requestStop() { ask(Request::Stop); }
  void cancel() { ask(Request::Cancel); }
  Request request() const;
  // For the stages before training, which have nothing to export: either request ends them.
  bool mustEnd() const { return request() != Request::None; }
  // Waits until a request stronger than `known` has come, at most `patience`; returns the request there is.
  Request waitForRequest(Request known, std::chrono::milliseconds patience) const;

  bool ended() const;
  // Waits at most `patience`; nothing while the run is still under way.
  std::optional<RunResult> waitFor(std::chrono::milliseconds patience) const;
  // Waits for the end, calling `observe` on the calling thread every `interval`.
  RunResult follow(const std::function<void()>& observe,
                   std::chrono::milliseconds interval = std::chrono::milliseconds(50)) const;

  // By the pipeline, once.
  void end(RunResult result);

 private:
  void ask(Request request);

  mutable std::mutex mutex_;
  mutable std::condition_variable changed_;
  Request request_ = Request::None;
  std::optional<RunResult> result_;
};

}  // namespace quor
