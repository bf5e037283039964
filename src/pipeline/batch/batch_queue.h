// Works through a batch unattended, one project after another. batch_plan.h decides where an item that was begun before
// goes on. The file is saved before and after each item, with the running one as waiting, so that it is right whenever
// the program ends.
#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "base/log/log_store.h"
#include "gs/train/training_service.h"
#include "pipeline/batch/batch_file.h"
#include "pipeline/batch/batch_plan.h"
#include "pipeline/pipeline.h"

namespace quor {

// Of an item: it was finished before, its work begins, goes on (many times a second), has ended.
enum class BatchEvent { Skipped, Begun, Working, Ended };

class BatchQueue {
 public:
  // Called on the thread of run(). At Ended the pipeline still holds the item's last status.
  using Observer = std::function<void(size_t item, BatchEvent event)>;

  // What the items run on; neither is null.
  struct Equipment {
    Pipeline* pipeline;
    gs::TrainingService* engine;
  };
  // Opens the GPU again and gives a pipeline and an engine on it; those before are no longer used. Throws what opening
  // a device throws.
  using Renew = std::function<Equipment()>;

  explicit BatchQueue(Batch batch, Observer observer = {}) : batch_(std::move(batch)), observer_(std::move(observer)) {}

  // On the calling thread. An item's failure is kept in the item; the run itself ends with std::runtime_error only when
  // the batch file cannot be saved or another run works through it. An item whose run is stopped or cancelled, here or
  // at the pipeline, goes back to waiting and ends the run. An item that loses the GPU is tried once more, from what it
  // has reached, on what `renew` gives; without `renew` it fails.
  void run(Pipeline& pipeline, gs::TrainingService& engine, LogStore& log, const Renew& renew = {});

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

 private:
  using Request = PipelineRun::Request;
  struct Ending {
    ItemState state = ItemState::Failed;
    std::string note;
    Outcome outcome = Outcome::Failed;
  };
  struct Work {
    Equipment on;
    LogStore& log;
    const Renew& renew;
    bool deviceLost = false;  // at the last attempt
  };

  bool workThrough(Work& work);
  Ending attempt(size_t index, Work& work);
  Ending work(size_t index, const Work& on);
  Ending build(size_t index, const BatchPlan& plan, const Work& on);
  Ending runStages(size_t index, const BatchPlan& plan, const Work& on);
  Request request() const;
  void setCurrent(std::optional<size_t> index);
  void record(size_t index, const std::function<void(BatchItem&)>& change);
  void notify(size_t index, BatchEvent event) const;

  mutable std::mutex mutex_;  // guards what follows
  Batch batch_;
  std::optional<size_t> current_;
  Request request_ = Request::None;
  std::shared_ptr<PipelineRun> run_;  // of the item at work
  const Observer observer_;
};

}  // namespace quor
