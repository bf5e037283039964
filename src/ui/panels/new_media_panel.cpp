#include "ui/panels/new_media_panel.h"

#include <imgui.h>

#include <algorithm>

#include "base/files/paths.h"
#include "ui/models/files/file_dialog.h"
#include "ui/panels/widgets.h"

namespace quor::ui {

namespace {

constexpr const char* kTitle = "New from photos or video";

void drawKind(NewMedia& form, size_t index) {
  const MediaSource& source = form.sources()[index];
  if (!source.isVideo()) return;
  ImGui::SetNextItemWidth(em(11));
  if (!ImGui::BeginCombo("##kind", kindLabel(source.kind()))) return;
  for (const InputKind kind : {InputKind::Video, InputKind::Video360, InputKind::DualFisheye}) {
    if (ImGui::Selectable(kindLabel(kind), source.kind() == kind)) form.setKind(index, kind);
  }
  ImGui::EndCombo();
}

void drawSources(NewMedia& form) {
  if (form.sources().empty()) {
    drawFaint("Drop photographs, videos or folders of them onto the window, or add them here.");
    return;
  }
  if (!ImGui::BeginTable("sources", 3)) return;
  ImGui::TableSetupColumn("what", ImGuiTableColumnFlags_WidthStretch);
  ImGui::TableSetupColumn("kind", ImGuiTableColumnFlags_WidthFixed);
  ImGui::TableSetupColumn("remove", ImGuiTableColumnFlags_WidthFixed);
  for (size_t i = 0; i < form.sources().size(); ++i) {
    ImGui::PushID(static_cast<int>(i));
    ImGui::TableNextRow();
    ImGui::TableNextColumn();
    ImGui::AlignTextToFramePadding();
    drawWrapped(form.sources()[i].text());
    drawTooltip(form.sources()[i].inputs.front().path);
    ImGui::TableNextColumn();
    drawKind(form, i);
    drawTooltip("What the video is. It was found out by opening it; change it if that is wrong.");
    ImGui::TableNextColumn();
    const bool removed = ImGui::SmallButton("Remove");
    drawTooltip("Leaves this out of the project. The files stay where they are.");
    ImGui::PopID();
    if (removed) {
      form.remove(i);
      break;
    }
  }
  ImGui::EndTable();
}

void drawAdding(NewMedia& form, const PanelContext& context) {
  const auto add = [&form](const std::vector<std::filesystem::path>& paths) { form.add(paths); };
  ImGui::BeginDisabled(context.dialogs.open());
  if (ImGui::Button("Add files...")) {
    context.dialogs.ask({FileDialog::Kind::OpenFiles, "Photographs and videos", {}, {}}, add);
  }
  ImGui::SameLine();
  if (ImGui::Button("Add folder...")) {
    context.dialogs.ask({FileDialog::Kind::OpenFolder, "Folder of photographs or videos", {}, {}}, add);
  }
  ImGui::EndDisabled();
  if (form.loading()) drawSpinner(form.taskText());
  for (const std::string& problem : form.problems()) drawWarning(problem);
}

void drawQuality(NewMedia& form) {
  for (const Preset preset : kPresets) {
    if (preset != kPresets.front()) ImGui::SameLine();
    if (ImGui::RadioButton(presetName(preset), form.preset() == preset)) form.choose(preset);
    drawTooltip(presetMeaning(preset));
  }
  if (form.preset() == Preset::Custom) {
    ImGui::SameLine();
    ImGui::RadioButton(presetName(Preset::Custom), true);
  }
  drawWrapped(presetMeaning(form.preset()));
  drawFaint(presetNumbers(form.settings()));
}

void drawFormSettings(NewMedia& form) {
  Project settings = settingsOf(form.settings());
  bool changed = drawSetting(settingNamed("technique"), settings);
  if (form.hasVideo()) changed = drawSetting(settingNamed("targetFrameCount"), settings) || changed;
  if (ImGui::CollapsingHeader("Advanced settings")) {
    for (const SettingGroup group : kSettingGroups) changed = drawSettings(group, settings) || changed;
  }
  if (changed) form.setSettings(settings);
}

void drawPlace(NewMedia& form, const PanelContext& context) {
  drawWrapped(form.described() ? toUtf8(form.described()->root) : std::string("Beside the first of the media."));
  ImGui::BeginDisabled(context.dialogs.open());
  if (ImGui::Button("Choose another place...")) {
    context.dialogs.ask({FileDialog::Kind::OpenFolder, "Folder in which the project folder is made", {}, {}},
                        [&form](const std::vector<std::filesystem::path>& paths) {
                          if (!paths.empty()) form.setDestination(paths.front());
                        });
  }
  ImGui::EndDisabled();
  if (!form.destination().empty()) {
    ImGui::SameLine();
    if (ImGui::Button("Beside the media")) form.setDestination({});
  }
  if (form.destinationNote().empty()) return;
  drawWarning(form.destinationNote());
  if (form.projectExists() && ImGui::Button("Open the project that is there")) form.openExisting();
}

void drawFooter(NewMedia& form) {
  ImGui::Separator();
  if (drawPrimaryButton(form.buildButton())) form.create(true);
  ImGui::SameLine();
  ImGui::PushStyleVar(ImGuiStyleVar_FramePadding, {em(0.6F), em(0.5F)});
  if (drawButton(form.createButton())) form.create(false);
  ImGui::SameLine();
  if (drawButton({"Cancel", "Closes the form and forgets what was added.", true})) form.visible = false;
  ImGui::PopStyleVar();
  if (!form.buildButton().enabled) drawFaint(form.buildButton().hint);
}

}  // namespace

void drawNewMediaWindow(NewMedia& form, const PanelContext& context) {
  if (!form.visible) return;
  const ImVec2 screen = ImGui::GetMainViewport()->WorkSize;
  const ImVec2 corner = ImGui::GetMainViewport()->WorkPos;
  ImGui::SetNextWindowSize({std::min(em(44), screen.x * 0.95F), std::min(em(40), screen.y * 0.95F)},
                           ImGuiCond_Appearing);
  ImGui::SetNextWindowPos({corner.x + screen.x / 2, corner.y + screen.y / 2}, ImGuiCond_Appearing, {0.5F, 0.5F});
  if (ImGui::Begin(kTitle, &form.visible, ImGuiWindowFlags_NoCollapse)) {
    const float footer = em(2) + ImGui::GetTextLineHeightWithSpacing() * 2 + ImGui::GetStyle().ItemSpacing.y * 3;
    ImGui::BeginChild("form", {0, -footer});
    drawHeading("Photographs and video");
    drawSources(form);
    drawAdding(form, context);
    drawHeading("Quality");
    drawQuality(form);
    drawFormSettings(form);
    drawHeading("Project folder");
    drawPlace(form, context);
    ImGui::EndChild();
    drawFooter(form);
  }
  ImGui::End();
  if (!form.visible) form.clear();
}

}  // namespace quor::ui
