#include "ui/panels/training_settings_panel.h"

#include <imgui.h>

#include "ui/models/settings/presets.h"
#include "ui/panels/widgets.h"

namespace quor::ui {

void drawTrainingSettingsPanel(Workspace& workspace, const PanelContext&) {
  if (!workspace.project()) {
    drawFaint("Open a project to see its settings.");
    return;
  }
  if (const std::string note = workspace.settingsNote(); !note.empty()) drawFaint(note);
  Project settings = settingsOf(*workspace.project());
  bool changed = false;
  for (const Preset preset : kPresets) {
    if (preset != kPresets.front()) ImGui::SameLine();
    if (ImGui::RadioButton(presetName(preset), presetOf(settings) == preset)) {
      applyPreset(preset, settings);
      changed = true;
    }
    drawTooltip(presetMeaning(preset));
  }
  drawFaint(presetNumbers(settings));
  changed = drawSetting(settingNamed("technique"), settings) || changed;
  changed = drawSetting(settingNamed("iterations"), settings) || changed;
  for (const SettingGroup group : kSettingGroups) changed = drawSettings(group, settings) || changed;
  if (changed) workspace.editProject([&](Project& project) { project.takeSettings(settings); });
}

}  // namespace quor::ui
