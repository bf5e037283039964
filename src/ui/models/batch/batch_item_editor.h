// The settings of one capture in the queue, or of all that are not finished.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "project/project.h"
#include "ui/models/batch/batch_list.h"

namespace quor::ui {

class BatchItemEditor {
 public:
  // Settings by a name that says what they are good for.
  struct Preset {
    std::string name;
    std::string explanation;
    std::function<void(BatchItem&)> apply;
  };

  explicit BatchItemEditor(BatchList& list);

  // The item whose settings are shown; nothing: those of all that are not finished, by the example of the first.
  const std::optional<size_t>& selected() const { return selected_; }
  void select(std::optional<size_t> index) { selected_ = index; }
  Project shownSettings() const;
  // Applies the differences to shownSettings() to the items that it stands for.
  void setSettings(const Project& edited);
  const std::vector<Preset>& presets() const { return presets_; }
  void apply(const Preset& preset) { list_.change(preset.apply, selected_); }  // to the same items

 private:
  BatchList& list_;
  const std::vector<Preset> presets_;
  std::optional<size_t> selected_;
};

}  // namespace quor::ui
