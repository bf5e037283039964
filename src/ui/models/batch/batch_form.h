// The Batch window: a queue of captures that is put together, saved as batch.json and worked through on a thread of its
// own. The interface's thread only.
#pragma once

#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "base/log/log_store.h"
#include "gs/train/training_service.h"
#include "pipeline/pipeline.h"
#include "ui/models/batch/batch_item_editor.h"
#include "ui/models/batch/batch_list.h"
#include "ui/models/batch/batch_run.h"

namespace quor::ui {

class BatchForm {
 public:
  struct Parts {
    LogStore& log;
    gs::TrainingService& trainer;
    std::function<std::unique_ptr<Pipeline>()> makePipeline;  // with the tools found now; when a run begins
    std::function<bool()> occupied;                           // something else runs or trains
    std::function<void(const std::filesystem::path&)> openProject;
    std::function<void(BatchItem&)> configure;  // settings of a new item; may be empty
  };
  enum class RowState { Waiting, Running, Finished, Failed };
  struct Row {
    std::string name;
    std::string media;  // "Video: /path", "COLMAP dataset: /path", "Image folder: /path and 2 more"
    RowState state = RowState::Waiting;
    std::string text;     // what is going on, or the note of the last attempt
    float fraction = -1;  // of the stage at work; negative: unknown
    bool hasProject = false;
  };

  explicit BatchForm(Parts parts);

  void update();  // once a frame

  BatchList& list() { return list_; }
  const BatchList& list() const { return list_; }
  BatchItemEditor& editor() { return editor_; }
  std::string whyNotEdit() const;  // a sentence; empty when the queue can be changed
  void remove(size_t index);
  void move(size_t index, size_t to);

  const std::vector<Row>& rows() const { return rows_; }
  std::string summary() const;  // "2 of 5 finished, 1 failed"
  void openProject(size_t index) const;

  // The run, which saves first.
  void start();
  std::string whyNotStart() const;  // a sentence; empty when start() will do
  bool running() const { return run_ && run_->running(); }
  void stop();    // training ends after its step, with scene and checkpoint; the item waits
  void cancel();  // at once
  bool stopping() const { return run_ && run_->stopping(); }

  // Failures and remedies, until dismissed.
  std::vector<std::string>& messages() { return messages_; }

 private:
  void takeItems();
  void beginRun(const Batch& batch);
  void endRun();
  void showRows(const Batch& batch);
  void showProgress();

  const Parts parts_;
  std::vector<std::string> messages_;
  BatchList list_;
  BatchItemEditor editor_;
  std::vector<Row> rows_;
  std::chrono::steady_clock::time_point shown_ = {};  // when the rows were last made while running
  std::optional<size_t> atWork_;                      // the item, in those rows
  std::unique_ptr<BatchRun> run_;
};

}  // namespace quor::ui
