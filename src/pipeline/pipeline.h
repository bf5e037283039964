// Runs the stages of one project on a worker thread: frames, camera solve, training. Every front end drives this class
// and reads the same status snapshots.
#pragma once

#include <array>
#include <atomic>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "base/log_store.h"
#include "gs/training_service.h"
#include "project/project.h"

namespace quor {

enum class Stage : int32_t { Frames = 0, Sparse = 1, Train = 2 };
const char* stageName(Stage stage);

enum class StageState : int32_t { NotRun = 0, Running = 1, Done = 2, Failed = 3 };

struct StageStatus {
  StageState state = StageState::NotRun;
  std::string message;
  float fraction = -1;  // 0..1, -1 when unknown
};

class Pipeline {
 public:
  using Completion = std::function<void(bool success, const std::string& result)>;

  Pipeline(gs::TrainingService& trainer, LogStore& log);
  ~Pipeline();  // cancels and joins

  // Both throw std::runtime_error "Finish or cancel the running stage first." while busy.
  void open(const Project& project);
  void close();

  // false when there is no project or a run is under way. `completion` is called on the worker.
  bool start(Stage from, Stage to, Completion completion = {});
  void cancel();
  void requestStop();  // training ends after the current step and still exports; earlier stages are cancelled
  bool busy() const { return busy_.load(); }

  StageStatus status(Stage stage) const;
  std::vector<std::string> summary() const;  // one line a stage
  std::optional<gs::TrainResult> trainResult() const;

 private:
  gs::TrainingService& trainer_;
  LogStore& log_;
  std::atomic<bool> busy_ = false;
};

// What the trainer is asked for by a project's settings.
gs::TrainJob makeTrainJob(const Project& project);

}  // namespace quor
