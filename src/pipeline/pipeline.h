// Runs the stages of one project on a worker thread: frames, camera solve, training. Every front end drives this class
// and reads the same status snapshots. open(), close() and start() belong to one controlling thread; everything else
// may be called from any thread.
#pragma once

#include <array>
#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "pipeline/pipeline_run.h"
#include "pipeline/stage.h"
#include "project/project_lock.h"

namespace quor {

class Pipeline {
 public:
  // `result` is "Done", "Cancelled" or the sentence of the stage that failed.
  using Completion = std::function<void(bool success, const std::string& result)>;

  // Features are matched on `gpu`, which must outlive this object; without one COLMAP matches. A test may put other
  // stages in place of the real ones.
  Pipeline(gs::TrainingService& trainer, LogStore& log, Tools tools = {}, gs::VulkanContext* gpu = nullptr,
           StageBodies stages = {prepareFrames, solveCameras, trainSplats});
  ~Pipeline();  // cancels and joins
  Pipeline(const Pipeline&) = delete;
  Pipeline& operator=(const Pipeline&) = delete;

  // Both throw std::runtime_error "Finish or cancel the running stage first." while busy.
  void open(const Project& project);
  void close();

  // The run that was started, or null (which reads as false) when there is no project or a run is under way. The
  // project's folder is locked until the run has ended; throws std::runtime_error when another run holds it. A caller
  // that holds it already hands its lock over. `completion` is called on the worker just before busy() turns false,
  // when all records are final; it must not call open(), close() or start().
  std::shared_ptr<PipelineRun> start(Stage from, Stage to, Completion completion = {},
                                     std::optional<ProjectLock> lock = {});
  // Of the run under way, as PipelineRun has them.
  void cancel();
  void requestStop();
  bool busy() const;

  // The stage that runs now or ran last.
  Stage currentStage() const;
  StageStatus status(Stage stage) const;
  // One line a stage, from what lies in the project folder.
  std::vector<std::string> summary() const;
  // As it was opened, with what the frame stage has recorded since.
  std::optional<Project> project() const;

 private:
  void resetLocked();
  void requireIdle();
  RunResult runStages(Stage from, Stage to, const PipelineRun& run);
  void runStage(Stage stage, const PipelineRun& run, RunResult& result);
  std::optional<Project> beginStage(Stage stage, const PipelineRun& run);
  void endStage(Stage stage, const Project& project, const std::string& message);
  void failStage(Stage stage, const RunResult& result);
  void report(Stage stage, StageStatus status);

  gs::TrainingService& trainer_;
  LogStore& log_;
  const Tools tools_;
  gs::VulkanContext* const gpu_;
  const StageBodies bodies_;

  mutable std::mutex mutex_;  // guards everything up to `run_`
  std::optional<Project> project_;
  std::array<StageStatus, kStageCount> stages_;
  Stage current_ = Stage::Frames;
  std::chrono::steady_clock::time_point stageStart_;
  std::shared_ptr<PipelineRun> run_;  // under way or the last

  std::thread worker_;
};

// What the trainer is asked for by a project's settings. Its dataset is the wrapped one, or the project's own camera
// solve.
gs::TrainJob makeTrainJob(const Project& project);

}  // namespace quor
