// Works through a batch, one project after another, without anybody's attention. Where an item begins that was begun
// before is decided in batch_plan.h. The file is saved before and after each item with the running one as waiting, so
// that it is true whenever the program ends.
#pragma once

#include <atomic>
#include <functional>
#include <mutex>
#include <optional>
#include <string>

#include "base/log/log_store.h"
#include "gs/train/training_service.h"
#include "pipeline/batch/batch_file.h"
#include "pipeline/batch/batch_plan.h"
#include "pipeline/pipeline.h"

namespace quor {

// What befalls an item: it was finished before, its work begins, goes on (many times a second), has ended.
enum class BatchEvent { Skipped, Begun, Working, Ended };

class BatchQueue {
 public:
  // Called on the thread of run(). At Ended the pipeline still holds the item's last status.
  using Observer = std::function<void(size_t item, BatchEvent event)>;

  explicit BatchQueue(Batch batch, Observer observer = {}) : batch_(std::move(batch)), observer_(std::move(observer)) {}

  // On the calling thread. An item's failure is kept in the item; only a batch file that cannot be saved ends the run
  // with std::runtime_error. An item whose run somebody stops or cancels, here or at the pipeline, goes back to waiting
  // and ends the run.
  void run(Pipeline& pipeline, gs::TrainingService& engine, LogStore& log);

  // From any thread, before run() too. Training ends after the current step and still writes scene and checkpoint; an
  // earlier stage is cancelled. The running item goes back to waiting, with what it has reached on disk, unless it was
  // complete; no other item begins.
  void cancel();
  // The same, but what training has not yet written is lost.
  void cancelAtOnce();

  // From any thread: a copy of the queue as it is now (the item at work is waiting in it), and the item at work.
  Batch snapshot() const;
  BatchItem item(size_t index) const;
  std::optional<size_t> current() const;
  // No item is running and nothing is cancelled; for a queue that is to be shown or run again.
  void reset();

 private:
  enum class Request { None, Stop, CancelAtOnce };
  struct Ending {
    ItemState state = ItemState::Failed;
    std::string note;
  };
  struct Work {
    Pipeline& pipeline;
    gs::TrainingService& engine;
    LogStore& log;
  };

  Ending work(size_t index, const Work& on);
  Ending build(size_t index, const BatchPlan& plan, const Work& on);
  Ending runStages(size_t index, const Project& project, Stage from, Pipeline& pipeline);
  void setCurrent(std::optional<size_t> index);
  void record(size_t index, const std::function<void(BatchItem&)>& change);
  void notify(size_t index, BatchEvent event) const;

  mutable std::mutex mutex_;  // guards the batch and the index
  Batch batch_;
  std::optional<size_t> current_;
  const Observer observer_;
  std::atomic<Request> request_ = Request::None;
};

}  // namespace quor
