#include "ui/models/batch/batch_item_editor.h"

#include <algorithm>
#include <utility>

#include "ui/models/settings/presets.h"

namespace quor::ui {

namespace {

Project projectOf(const BatchItem& item) {
  Project project;
  project.inputs = item.sources;
  project.takeSettings(item);
  return project;
}

std::vector<BatchItemEditor::Preset> presetsForItems() {
  std::vector<BatchItemEditor::Preset> presets;
  presets.reserve(kPresets.size());
  for (const Preset preset : kPresets) {
    presets.push_back({presetName(preset), presetMeaning(preset), [preset](BatchItem& item) {
                         Project project = projectOf(item);
                         applyPreset(preset, project);
                         item.takeSettings(project);
                       }});
  }
  return presets;
}

}  // namespace

BatchItemEditor::BatchItemEditor(BatchList& list) : list_(list), presets_(presetsForItems()) {}

Project BatchItemEditor::shownSettings() const {
  const std::vector<BatchItem>& items = list_.batch().items;
  const auto open = std::ranges::find_if(items, [](const BatchItem& i) { return i.state != ItemState::Finished; });
  const auto item = selected_ ? items.begin() + static_cast<std::ptrdiff_t>(*selected_) : open;
  return item == items.end() ? Project() : projectOf(*item);
}

void BatchItemEditor::setSettings(const Project& edited) {
  const auto json = [](const auto& settings) {
    nlohmann::ordered_json object;
    toJson(object, settings.ingest, settings.sparse, settings.training);
    return object;
  };
  const auto difference = nlohmann::ordered_json::diff(json(shownSettings()), json(edited));
  const auto edit = [&](BatchItem& item) {
    fromJson(json(item).patch(difference), item.ingest, item.sparse, item.training);
  };
  list_.change(edit, selected_);
}

}  // namespace quor::ui
