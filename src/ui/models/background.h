// Work that would hold up the interface, done on a thread of its own; the interface looks once a frame whether there is
// a result. Destruction waits for work that is under way.
#pragma once

#include <chrono>
#include <functional>
#include <future>
#include <optional>

namespace quor::ui {

template <typename Result>
class Background {
 public:
  // Only while nothing runs. `work` must not use what the interface's thread changes.
  void start(std::function<Result()> work) { future_ = std::async(std::launch::async, std::move(work)); }

  // Work is under way, or its result was not taken yet.
  bool running() const { return future_.valid(); }

  // The result, once; throws what the work threw.
  std::optional<Result> take() {
    if (!running() || future_.wait_for(std::chrono::seconds(0)) != std::future_status::ready) return std::nullopt;
    return future_.get();
  }

 private:
  std::future<Result> future_;
};

}  // namespace quor::ui
