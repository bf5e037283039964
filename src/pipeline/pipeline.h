// Runs the stages of one project on a worker thread: frames, camera solve, training. Every front end drives this class
// and reads the same status snapshots. open(), close() and start() belong to one controlling thread; everything else
// may be called from any thread.
#pragma once

#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <limits>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "base/failures.h"
#include "base/log/log_store.h"
#include "base/process/tool_finder.h"
#include "gs/train/training_service.h"
#include "project/project.h"

namespace quor {

namespace gs {
class VulkanContext;
}

enum class Stage : int32_t { Frames = 0, Sparse = 1, Train = 2 };
inline constexpr size_t kStageCount = 3;
const char* stageName(Stage stage);

enum class StageState : int32_t { NotRun = 0, Running = 1, Done = 2, Failed = 3 };

struct StageStatus {
  StageState state = StageState::NotRun;
  std::string message;
  float fraction = -1;                                            // 0..1, -1 when unknown
  double secondsLeft = std::numeric_limits<double>::quiet_NaN();  // of the stage, NaN while unknown
};

class Pipeline {
 public:
  // `result` is "Done", "Cancelled" or the sentence of the stage that failed.
  using Completion = std::function<void(bool success, const std::string& result)>;

  // Features are matched on `gpu`, which must outlive this object; without one COLMAP matches.
  Pipeline(gs::TrainingService& trainer, LogStore& log, Tools tools = {}, gs::VulkanContext* gpu = nullptr);
  ~Pipeline();  // cancels and joins
  Pipeline(const Pipeline&) = delete;
  Pipeline& operator=(const Pipeline&) = delete;

  // Both throw std::runtime_error "Finish or cancel the running stage first." while busy.
  void open(const Project& project);
  void close();

  // false when there is no project or a run is under way. `completion` is called on the worker just before busy() turns
  // false, when all records are final; it must not call open(), close() or start().
  bool start(Stage from, Stage to, Completion completion = {});
  void cancel();
  // Training ends after the current step and still exports. Earlier stages are cancelled, and so is training that has
  // not begun to step.
  void requestStop();
  bool busy() const { return busy_.load(); }

  // The stage that runs now or ran last.
  Stage currentStage() const;
  StageStatus status(Stage stage) const;
  // One line a stage, from what lies in the project folder.
  std::vector<std::string> summary() const;
  // As it was opened, with what the frame stage has recorded since.
  std::optional<Project> project() const;
  // Of the last run; nothing when it did not get as far as a scene.
  std::optional<gs::TrainResult> trainResult() const;

 private:
  void resetLocked();
  void requireIdle();
  void runStages(Stage from, Stage to, const Completion& completion);
  bool runStage(Stage stage, std::string& result);
  std::string runBody(Stage stage, const Project& project);
  std::string runFrames(const Project& project);
  std::string runSparse(const Project& project);
  std::string runTrain(const Project& project);
  void followTraining();
  void report(Stage stage, StageState state, const std::string& message, float fraction);

  gs::TrainingService& trainer_;
  LogStore& log_;
  const Tools tools_;
  gs::VulkanContext* const gpu_;

  mutable std::mutex mutex_;  // guards everything up to `trainResult_`
  std::condition_variable wake_;
  std::optional<Project> project_;
  std::array<StageStatus, kStageCount> stages_;
  Stage current_ = Stage::Frames;
  bool inStage_ = false;
  std::chrono::steady_clock::time_point stageStart_;
  std::optional<gs::TrainResult> trainResult_;

  std::atomic<bool> busy_ = false;
  std::atomic<bool> cancel_ = false;
  std::atomic<bool> stop_ = false;
  std::thread worker_;
};

// What the trainer is asked for by a project's settings. Its dataset is the wrapped one, or the project's own camera
// solve.
gs::TrainJob makeTrainJob(const Project& project);

}  // namespace quor
