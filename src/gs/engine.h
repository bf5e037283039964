// Runs training jobs on a thread of its own, one at a time. The front ends talk to it in requests and snapshots only;
// no call but wait() blocks on the GPU.
#pragma once

#include <atomic>
#include <filesystem>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>

#include "base/log_store.h"
#include "gpu/vulkan_context.h"
#include "gs/train_job.h"

namespace quor::gs {

class Engine {
 public:
  Engine(VulkanContext& context, LogStore& log);
  ~Engine();  // cancels and waits
  Engine(const Engine&) = delete;
  Engine& operator=(const Engine&) = delete;

  // Starts a job; std::logic_error while one runs. A failure of the job is in status() (state Failed, its sentence).
  void startTraining(TrainJob job);

  // End after the current step and still export. Before the first step, the scene as seeded is exported.
  void requestStop();
  // End at the next check without any export: state Stopped, text "Cancelled".
  void cancel();

  bool running() const { return running_.load(); }
  TrainStatus status() const;
  // Blocks until the job has ended; the result of a job that finished or was stopped early, nothing of one that failed
  // or was cancelled (status() says which).
  std::optional<TrainResult> wait();

 private:
  void runTraining(TrainJob job);
  void report(const TrainStatus& status);

  VulkanContext& context_;
  LogStore& log_;
  mutable std::mutex mutex_;
  TrainStatus status_;
  std::optional<TrainResult> result_;
  std::atomic<bool> running_ = false;
  std::atomic<bool> stop_ = false;
  std::atomic<bool> cancel_ = false;
  std::thread thread_;
};

}  // namespace quor::gs
