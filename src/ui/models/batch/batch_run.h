// A running batch, with its own thread and pipeline. All functions are thread-safe; the destructor cancels at once and
// waits.
#pragma once

#include <atomic>
#include <memory>
#include <optional>
#include <string>
#include <thread>

#include "base/log/log_store.h"
#include "gs/train/training_service.h"
#include "pipeline/batch/batch_queue.h"
#include "pipeline/pipeline.h"

namespace quor::ui {

class BatchRun {
 public:
  struct Progress {
    size_t item = 0;
    Stage stage = Stage::Frames;
    StageStatus status;
  };

  // Begins at once. Trainer and log must outlive this object.
  BatchRun(Batch batch, std::unique_ptr<Pipeline> pipeline, gs::TrainingService& trainer, LogStore& log);
  ~BatchRun();
  BatchRun(const BatchRun&) = delete;
  BatchRun& operator=(const BatchRun&) = delete;

  bool running() const { return running_.load(); }
  bool stopping() const { return stopping_.load(); }
  void stop();    // as BatchQueue::cancel()
  void cancel();  // as BatchQueue::cancelAtOnce()

  Batch batch() const { return queue_.snapshot(); }
  // Of the item at work, once its project is made.
  std::optional<Progress> progress() const;
  // Why the run ended early, once it has ended; otherwise empty.
  const std::string& failure() const { return failure_; }

 private:
  void run();

  gs::TrainingService& trainer_;
  LogStore& log_;
  const std::unique_ptr<Pipeline> pipeline_;
  BatchQueue queue_;
  std::atomic<bool> running_ = true;
  std::atomic<bool> stopping_ = false;
  std::atomic<bool> atWork_ = false;  // the pipeline holds the item at work, not the one before
  std::string failure_;               // written before running_ turns false
  std::thread thread_;
};

}  // namespace quor::ui
