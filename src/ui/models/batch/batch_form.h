// The Batch window: a queue of captures that is put together, saved as batch.json and worked through on a thread of its
// own. Reading and writing files and looking at captures happen on a worker thread. The interface's thread only.
#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "base/log/log_store.h"
#include "gs/train/training_service.h"
#include "pipeline/batch/batch_file.h"
#include "pipeline/pipeline.h"
#include "ui/models/background.h"
#include "ui/models/batch/batch_run.h"

namespace quor::ui {

class BatchForm {
 public:
  struct Parts {
    LogStore& log;
    gs::TrainingService& trainer;
    std::function<std::unique_ptr<Pipeline>()> makePipeline;  // with the tools found now; at the begin of a run
    std::function<bool()> occupied;                           // something else runs or trains
    std::function<void(const std::filesystem::path&)> openProject;
    std::function<void(BatchItem&)> configure;  // settings of a new item; may be empty
  };
  // Settings in words, for one item or all.
  struct Preset {
    std::string name;
    std::string explanation;
    std::function<void(BatchItem&)> apply;
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

  // The queue. While it is worked through it cannot be changed: whyNotEdit() says so, and changes are passed over.
  const Batch& batch() const { return batch_; }
  const std::vector<Row>& rows() const { return rows_; }
  std::string summary() const;  // "2 of 5 finished, 1 failed"
  std::string whyNotEdit() const;

  // The folder of the projects and of batch.json. While it is empty the first capture that is added decides.
  const std::string& destination() const { return destination_; }
  void setDestination(const std::string& folder);
  void addFolder(const std::filesystem::path& folder);        // each capture in it
  void add(const std::vector<std::filesystem::path>& paths);  // each path is one; photographs together are one
  void remove(size_t index);
  void move(size_t index, size_t to);
  // Of one item, or of all that are not finished.
  void change(const std::function<void(BatchItem&)>& edit, std::optional<size_t> index);
  // The item whose settings are shown; nothing: those of all that are not finished, by the example of the first.
  const std::optional<size_t>& selected() const { return selected_; }
  void select(std::optional<size_t> index) { selected_ = index; }
  Project shownSettings() const;
  // What was changed in shownSettings() is set in the items that they stand for.
  void setSettings(const Project& edited);
  void apply(const Preset& preset) { change(preset.apply, selected_); }  // to them, too
  void reset(size_t index);                                              // a failed or finished item waits again
  void resetFailed();
  void openProject(size_t index) const;

  const std::vector<Preset>& presets() const { return presets_; }

  // batch.json. A file that is there and was not read or written here is replaced only after the user was asked.
  void load(const std::filesystem::path& fileOrFolder);
  void save();
  std::string whyNotSave() const;
  bool changed() const { return changed_; }
  const std::string& question() const { return question_; }  // empty: none
  void answer(bool yes);

  // The run, which saves first.
  void start();
  std::string whyNotStart() const;  // a sentence; empty when start() will do
  bool running() const { return run_ && run_->running(); }
  void stop();    // training ends after its step, with scene and checkpoint; the item waits
  void cancel();  // at once
  bool stopping() const { return run_ && run_->stopping(); }

  bool busy() const { return working_.busy(); }  // files are read or written
  const std::string& busyText() const { return working_.text(); }
  // What could not be done, and what to do; until dismissed.
  std::vector<std::string>& messages() { return messages_; }

 private:
  struct Found {
    std::vector<BatchItem> items;
    std::vector<std::string> messages;
    std::filesystem::path destination;  // when there is none yet
  };

  static Found lookAt(const std::vector<std::filesystem::path>& paths);
  Background::Failed complain();
  void takeOver(Found found);
  bool isQueued(const BatchItem& item) const;
  Batch written() const;  // with the destination as it is now
  void write(bool thenRun, bool replace);
  void beginRun();
  void endRun();
  void touch();
  void showRows(const Batch& batch);
  void showProgress();

  const Parts parts_;
  const std::vector<Preset> presets_;
  Batch batch_;
  std::vector<Row> rows_;
  std::string destination_;
  std::filesystem::path ownFile_;  // read or written here, so that it may be replaced
  std::optional<size_t> selected_;
  uint64_t revision_ = 0;
  bool changed_ = false;
  std::string question_;
  bool runAfterQuestion_ = false;
  std::vector<std::string> messages_;
  std::chrono::steady_clock::time_point shown_ = {};  // when the rows were last made while running
  std::optional<size_t> atWork_;                      // the item, in those rows
  std::unique_ptr<BatchRun> run_;
  Background working_;
};

}  // namespace quor::ui
