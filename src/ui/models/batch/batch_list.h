// The queue of captures in the Batch window and the batch.json that it is saved to. Reading and writing files and
// looking at captures happen on a worker thread; the interface's thread only.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "pipeline/batch/batch_file.h"
#include "ui/models/background.h"

namespace quor::ui {

class BatchList {
 public:
  struct Parts {
    std::function<void(BatchItem&)> configure;  // settings of a new item; may be empty
    std::function<void(const std::string& sentence)> complain;
    std::function<void()> changed;  // the items have; may be empty
  };
  explicit BatchList(Parts parts) : parts_(std::move(parts)) {}

  void update() { working_.update(); }  // once a frame

  // While the queue is locked, because it is worked through, changes are passed over.
  void setLocked(bool locked) { locked_ = locked; }
  const Batch& batch() const { return batch_; }
  // The queue after a run, which has saved it itself.
  void replace(Batch batch);

  // The folder of the projects and of batch.json. While it is empty the first capture that is added decides.
  const std::string& destination() const { return destination_; }
  void setDestination(const std::string& folder);
  void addFolder(const std::filesystem::path& folder);        // each capture in it
  void add(const std::vector<std::filesystem::path>& paths);  // each path is one; photographs together are one
  void remove(size_t index);
  void move(size_t index, size_t to);
  // Of one item, or of all that are not finished.
  void change(const std::function<void(BatchItem&)>& edit, std::optional<size_t> index);
  void reset(size_t index);  // a failed or finished item waits again
  void resetFailed();

  // A file that is there and was not read or written here is replaced only after the user was asked.
  void load(const std::filesystem::path& fileOrFolder);
  // Calls `then`, which may be empty, with what was written.
  void save(std::function<void(const Batch&)> then = {});
  std::string whyNotSave() const;
  bool changed() const { return changed_; }
  const std::string& question() const { return question_; }  // empty: nothing to ask
  void answer(bool yes);

  bool busy() const { return working_.busy(); }  // files are read or written
  const std::string& busyText() const { return working_.text(); }

 private:
  struct Found {
    std::vector<BatchItem> items;
    std::vector<std::string> messages;
    std::filesystem::path destination;  // when there is none yet
  };

  static Found lookAt(const std::vector<std::filesystem::path>& paths);
  void takeOver(Found found);
  bool isQueued(const BatchItem& item) const;
  Batch written() const;  // with the destination as it is now
  void write(std::function<void(const Batch&)> then, bool replace);
  void touch();

  const Parts parts_;
  Batch batch_;
  std::string destination_;
  std::filesystem::path ownFile_;  // read or written here, so that it may be replaced
  uint64_t revision_ = 0;
  bool changed_ = false;
  bool locked_ = false;
  std::string question_;
  std::function<void(const Batch&)> afterQuestion_;
  Background working_;
};

}  // namespace quor::ui
