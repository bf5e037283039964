// Runs training jobs on a thread of its own, one at a time. The front ends talk to it in requests and snapshots only;
// only wait() blocks.
#pragma once

#include <atomic>
#include <optional>
#include <thread>

#include "base/log/log_store.h"
#include "gpu/compute/kernel_registry.h"
#include "gpu/device/vulkan_context.h"
#include "gs/train/run_control.h"
#include "gs/train/training_service.h"

namespace quor::gs {

class LiveScene;

class Engine final : public TrainingService {
 public:
  // `live`, which outlives the engine, receives the splats of jobs with TrainJob::liveView.
  Engine(VulkanContext& context, LogStore& log, LiveScene* live = nullptr);
  ~Engine() override;  // cancels and waits
  Engine(const Engine&) = delete;
  Engine& operator=(const Engine&) = delete;

  void startTraining(TrainJob job) override;
  void requestStop() override { control_.requestStop(); }
  void cancel() override { control_.cancel(); }
  bool running() const override { return running_; }
  TrainStatus status() const override { return control_.status(); }
  std::optional<TrainResult> wait() override;

  KernelRegistry& registry() { return registry_; }

 private:
  void runTraining(const TrainJob& job);

  VulkanContext& context_;
  KernelRegistry registry_;
  LogStore& log_;
  LiveScene* const live_;
  RunControl control_;
  std::optional<TrainResult> result_;  // the thread's until it is joined
  std::atomic<bool> running_ = false;
  std::thread thread_;
};

}  // namespace quor::gs
