// Works through a batch, one project after another, without anybody's attention.
#pragma once

#include <atomic>
#include <mutex>
#include <optional>
#include <string>

#include "base/log_store.h"
#include "gs/training_service.h"
#include "pipeline/batch_file.h"
#include "pipeline/pipeline.h"

namespace quor {

class BatchQueue {
 public:
  explicit BatchQueue(Batch batch) : batch_(std::move(batch)) {}

  // On the calling thread. An item's failure is kept in the item; only a batch file that cannot be saved ends the run
  // with std::runtime_error. The file is saved before and after each item.
  void run(Pipeline& pipeline, gs::TrainingService& engine, LogStore& log);

  // From any thread. The running item goes back to waiting, with what it has reached on disk; the run ends.
  void cancel();

  // From any thread: a copy of the queue as it is now, and the item at work.
  Batch snapshot() const;
  std::optional<size_t> current() const;
  // No item is running; for a queue that is to be shown again after its run.
  void reset();

 private:
  mutable std::mutex mutex_;
  Batch batch_;
  std::optional<size_t> current_;
  std::atomic<bool> cancelled_ = false;
};

}  // namespace quor
