// Runs training jobs on a thread of its own, one at a time. The front ends talk to it in requests and snapshots only;
// no call but wait() blocks on the GPU.
#pragma once

#include <atomic>
#include <mutex>
#include <optional>
#include <thread>

#include "base/log/log_store.h"
#include "gpu/compute/kernel_registry.h"
#include "gpu/device/vulkan_context.h"
#include "gs/train/training_service.h"

namespace quor::gs {

class LiveScene;
class Trainer;
struct Dataset;

class Engine final : public TrainingService {
 public:
  // `live`, which outlives the engine, gets the splats of jobs that are to be looked at (TrainJob::liveView).
  Engine(VulkanContext& context, LogStore& log, LiveScene* live = nullptr);
  ~Engine() override;  // cancels and waits
  Engine(const Engine&) = delete;
  Engine& operator=(const Engine&) = delete;

  void startTraining(TrainJob job) override;
  // Before the first step, the scene as seeded is exported.
  void requestStop() override { stop_ = true; }
  void cancel() override { cancel_ = true; }
  bool running() const override { return running_.load(); }
  TrainStatus status() const override;
  std::optional<TrainResult> wait() override;

  KernelRegistry& registry() { return registry_; }

 private:
  void runTraining(const TrainJob& asked);
  TrainResult train(const TrainJob& job, const Dataset& dataset);
  EvalResult scoreHeldOut(Trainer& trainer, const std::filesystem::path& folder);
  void trainSteps(Trainer& trainer, const TrainJob& job, TrainResult& result);
  void exportScene(Trainer& trainer, const TrainJob& job, TrainResult& result);
  void writeRunLog(const TrainJob& job, const TrainResult& result, int resumedFrom) const;

  void report(TrainState state, std::string text);
  template <class Change>
  void update(Change change);
  void throwIfCancelled() const;

  VulkanContext& context_;
  KernelRegistry registry_;
  LogStore& log_;
  LiveScene* const live_;
  mutable std::mutex mutex_;
  TrainStatus status_;
  std::optional<TrainResult> result_;
  std::atomic<bool> running_ = false;
  std::atomic<bool> stop_ = false;
  std::atomic<bool> cancel_ = false;
  std::thread thread_;
};

}  // namespace quor::gs
