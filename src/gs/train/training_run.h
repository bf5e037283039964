// One training job from its first line to its files, on the caller's thread: load, seed or resume, step, export, score
// and log. The front ends know it through Engine only.
#pragma once

#include <exception>
#include <optional>
#include <string>

#include "base/log/log_store.h"
#include "gs/files/checkpoint.h"
#include "gs/render/renderer.h"
#include "gs/train/run_control.h"
#include "gs/train/train_job.h"

namespace quor::gs {

class KernelRegistry;
class LiveScene;
class Trainer;
class VulkanContext;
struct Dataset;

class TrainingRun {
 public:
  // Everything outlives the run; `live` may be null. `job` as asked for.
  TrainingRun(VulkanContext& context, KernelRegistry& registry, LogStore& log, LiveScene* live, RunControl& control,
              const TrainJob& job);

  // Throws what ended the run early, Cancelled included; the run's block is then in the training log already.
  TrainResult run();

 private:
  Dataset load();
  void train(const Dataset& dataset);
  void trainOnce(const Dataset& dataset, const Renderer::Variants& variants, std::optional<Checkpoint>& from);
  void takeSteps(Trainer& trainer);
  void showProgress(const Trainer& trainer, double stepSeconds);
  void saveAfterFailure(Trainer& trainer, std::optional<Checkpoint>& from);
  void makeSmaller(uint64_t splats);
  void finish(Trainer& trainer, const Dataset& dataset);
  EvalResult scoreHeldOut(Trainer& trainer);
  void writeRunLog(TrainState outcome, const std::string& reason) const;

  VulkanContext& context_;
  KernelRegistry& registry_;
  LogStore& log_;
  LiveScene* const live_;
  RunControl& control_;
  TrainJob job_;
  TrainResult result_;
  int resumedFrom_ = 0;
  int retries_ = 0;  // after GPU memory ran out
};

// The sentence for the user.
std::string trainingFailureText(const std::exception& error);

}  // namespace quor::gs
