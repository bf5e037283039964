#include "pipeline/pipeline_run.h"

#include <algorithm>
#include <utility>

namespace quor {

void PipelineRun::ask(Request request) {
  {
    const std::lock_guard lock(mutex_);
    request_ = std::max(request_, request);
  }
  changed_.notify_all();
}

PipelineRun::Request PipelineRun::request() const {
  const std::lock_guard lock(mutex_);
  return request_;
}

PipelineRun::Request PipelineRun::waitForRequest(Request known, std::chrono::milliseconds patience) const {
  std::unique_lock lock(mutex_);
  changed_.wait_for(lock, patience, [&] { return request_ > known; });
  return request_;
}

bool PipelineRun::ended() const {
  const std::lock_guard lock(mutex_);
  return result_.has_value();
}

std::optional<RunResult> PipelineRun::waitFor(std::chrono::milliseconds patience) const {
  std::unique_lock lock(mutex_);
  changed_.wait_for(lock, patience, [&] { return result_.has_value(); });
  return result_;
}

RunResult PipelineRun::follow(const std::function<void()>& observe, std::chrono::milliseconds interval) const {
  for (;;) {
    if (std::optional<RunResult> result = waitFor(interval)) return *std::move(result);
    observe();
  }
}

void PipelineRun::end(RunResult result) {
  {
    const std::lock_guard lock(mutex_);
    result_ = std::move(result);
  }
  changed_.notify_all();
}

}  // namespace quor
