#include "ui/panels/windows/batch_window.h"

#include <imgui.h>
#include <imgui_stdlib.h>

#include "base/files/paths.h"
#include "base/text/text.h"
#include "ui/models/files/file_dialog.h"
#include "ui/panels/widgets.h"

namespace quor::ui {

namespace {

using Paths = std::vector<std::filesystem::path>;

constexpr const char* kQuestion = "Replace the batch?";

const ImVec4& colourOf(BatchForm::RowState state) {
  static const ImVec4 kFinished = {0.55F, 0.85F, 0.5F, 1}, kFailed = {1.0F, 0.42F, 0.38F, 1};
  switch (state) {
    case BatchForm::RowState::Finished:
      return kFinished;
    case BatchForm::RowState::Failed:
      return kFailed;
    default:
      return ImGui::GetStyleColorVec4(ImGuiCol_Text);
  }
}

const char* wordFor(BatchForm::RowState state) {
  switch (state) {
    case BatchForm::RowState::Running:
      return "Running";
    case BatchForm::RowState::Finished:
      return "Finished";
    case BatchForm::RowState::Failed:
      return "Failed";
    case BatchForm::RowState::Waiting:
      break;
  }
  return "Waiting";
}

// A button that asks for paths.
void drawAsking(const Button& button, const PanelContext& context, FileDialog::Request request,
                std::function<void(const Paths&)> take) {
  if (!drawButton(button)) return;
  request.title = button.hint;
  context.dialogs.ask(request, [take = std::move(take)](const Paths& paths) {
    if (!paths.empty()) take(paths);
  });
}

void drawAdding(BatchForm& form, const PanelContext& context) {
  const bool can = form.whyNotEdit().empty() && !context.dialogs.open();
  const auto add = [&form](const Paths& paths) { form.list().add(paths); };
  drawAsking({"Add folder of captures...",
              "A folder of captures: each video, each folder of photographs and each COLMAP dataset in it", can},
             context, {FileDialog::Kind::OpenFolder},
             [&form](const Paths& paths) { form.list().addFolder(paths.front()); });
  ImGui::SameLine();
  drawAsking({"Add one folder...", "A folder of photographs or videos, or a COLMAP dataset: one capture", can}, context,
             {FileDialog::Kind::OpenFolder}, add);
  ImGui::SameLine();
  drawAsking({"Add files...", "Videos, each a capture, or photographs, together one capture", can}, context,
             {FileDialog::Kind::OpenFiles}, add);
  ImGui::SameLine();
  drawAsking({"Load Saved Batch", "A batch.json that was saved before", can}, context,
             {FileDialog::Kind::OpenFiles, {}, {"json"}},
             [&form](const Paths& paths) { form.list().load(paths.front()); });
}

void drawDestination(BatchForm& form, const PanelContext& context) {
  const bool can = form.whyNotEdit().empty();
  ImGui::AlignTextToFramePadding();
  ImGui::TextUnformatted("Projects go to");
  ImGui::SameLine();
  ImGui::BeginDisabled(!can);
  std::string destination = form.list().destination();
  ImGui::SetNextItemWidth(-em(6));
  if (ImGui::InputTextWithHint("##destination", "The folder of the first capture", &destination)) {
    form.list().setDestination(destination);
  }
  ImGui::EndDisabled();
  drawTooltip("Each capture gets a project folder in here. The queue itself is saved here as batch.json.");
  ImGui::SameLine();
  drawAsking({"Choose...", "The folder for the projects", can && !context.dialogs.open()}, context,
             {FileDialog::Kind::OpenFolder},
             [&form](const Paths& paths) { form.list().setDestination(toUtf8(paths.front())); });
}

// False when the rows are others now.
bool drawRowButtons(BatchForm& form, size_t i) {
  const BatchForm::Row& row = form.rows()[i];
  const size_t count = form.rows().size();
  ImGui::BeginDisabled(!form.whyNotEdit().empty());
  ImGui::BeginDisabled(i == 0);
  const bool up = ImGui::ArrowButton("up", ImGuiDir_Up);
  ImGui::EndDisabled();
  ImGui::SameLine(0, em(0.2F));
  ImGui::BeginDisabled(i + 1 == count);
  const bool down = ImGui::ArrowButton("down", ImGuiDir_Down);
  ImGui::EndDisabled();
  ImGui::SameLine();
  const bool remove = ImGui::Button("Remove");
  ImGui::EndDisabled();
  drawTooltip(form.whyNotEdit().empty() ? "Takes it off the queue. Its files stay where they are." : form.whyNotEdit());
  const bool ended = row.state == BatchForm::RowState::Failed || row.state == BatchForm::RowState::Finished;
  ImGui::SameLine();
  const bool again = drawButton(
      {"Again", ended ? "Waits to be built again." : "It has not been built yet.", ended && form.whyNotEdit().empty()});
  ImGui::SameLine();
  if (drawButton({"Open", row.hasProject ? "Opens its project in the main window." : "It has no project yet.",
                  row.hasProject})) {
    form.openProject(i);
  }
  if (up) form.move(i, i - 1);
  if (down) form.move(i, i + 1);
  if (remove) form.remove(i);
  if (again) form.list().reset(i);
  return !(up || down || remove || again);
}

bool drawRow(BatchForm& form, size_t i) {
  const BatchForm::Row& row = form.rows()[i];
  ImGui::TableNextColumn();
  ImGui::AlignTextToFramePadding();
  const bool selected = form.editor().selected() == i;
  const ImGuiSelectableFlags flags = ImGuiSelectableFlags_SpanAllColumns | ImGuiSelectableFlags_AllowItemOverlap;
  if (ImGui::Selectable(row.name.c_str(), selected, flags))
    form.editor().select(selected ? std::nullopt : std::optional(i));
  drawTooltip(row.media);
  ImGui::TableNextColumn();
  ImGui::AlignTextToFramePadding();
  ImGui::TextColored(colourOf(row.state), "%s", wordFor(row.state));
  ImGui::TableNextColumn();
  ImGui::AlignTextToFramePadding();
  drawWrapped(row.text);
  if (row.state == BatchForm::RowState::Running && row.fraction >= 0) {
    ImGui::ProgressBar(row.fraction, {-1, em(0.5F)}, "");
  }
  ImGui::TableNextColumn();
  return drawRowButtons(form, i);
}

void drawQueue(BatchForm& form) {
  if (form.rows().empty()) return drawFaint("Add captures: they are built one after the other, without you.");
  const ImGuiTableFlags flags = ImGuiTableFlags_RowBg | ImGuiTableFlags_BordersInnerH | ImGuiTableFlags_Resizable;
  if (!ImGui::BeginTable("queue", 4, flags)) return;
  ImGui::TableSetupColumn("Capture", ImGuiTableColumnFlags_WidthStretch, 2);
  ImGui::TableSetupColumn("State", ImGuiTableColumnFlags_WidthFixed, em(4.5F));
  ImGui::TableSetupColumn("", ImGuiTableColumnFlags_WidthStretch, 4);
  ImGui::TableSetupColumn("##buttons", ImGuiTableColumnFlags_WidthFixed | ImGuiTableColumnFlags_NoResize);
  ImGui::TableHeadersRow();
  for (size_t i = 0; i < form.rows().size(); ++i) {
    ImGui::PushID(static_cast<int>(i));
    ImGui::TableNextRow();
    const bool same = drawRow(form, i);
    ImGui::PopID();
    if (!same) break;
  }
  ImGui::EndTable();
}

void drawSettingsOfItems(BatchForm& form) {
  const std::string whose =
      form.editor().selected() ? form.rows()[*form.editor().selected()].name : "all captures that are not finished";
  if (!ImGui::CollapsingHeader(("Settings of " + whose + "###settings").c_str())) return;
  drawFaint(form.editor().selected() ? "Click its row again to change all captures."
                                     : "Click a row to change that capture alone.");
  ImGui::BeginDisabled(!form.whyNotEdit().empty());
  for (const BatchItemEditor::Preset& preset : form.editor().presets()) {
    if (drawButton({preset.name, preset.explanation})) form.editor().apply(preset);
    ImGui::SameLine();
  }
  if (!form.editor().presets().empty()) ImGui::NewLine();
  Project settings = form.editor().shownSettings();
  bool changed = false;
  for (const SettingGroup group : kSettingGroups) changed = drawSettings(group, settings) || changed;
  if (changed) form.editor().setSettings(settings);
  ImGui::EndDisabled();
}

void drawRun(BatchForm& form) {
  if (form.running()) {
    const bool stopping = form.stopping();
    if (drawButton({"Stop",
                    "Ends training after its step, with the scene and a checkpoint to go on from. The capture waits.",
                    !stopping})) {
      form.stop();
    }
    ImGui::SameLine();
    if (drawButton({"Cancel at once", "Ends now. What training has not written yet is lost."})) form.cancel();
  } else {
    const std::string refusal = form.whyNotStart();
    if (drawButton({"Run", refusal.empty() ? "Builds every capture that is not finished." : refusal, refusal.empty()},
                   em(7))) {
      form.start();
    }
    ImGui::SameLine();
    const std::string unsaved = form.list().whyNotSave();
    if (drawButton({form.list().changed() ? "Save*" : "Save",
                    unsaved.empty() ? "Saves the queue as batch.json." : unsaved, unsaved.empty()})) {
      form.list().save();
    }
    const bool failed = form.list().batch().count(ItemState::Failed) > 0;
    ImGui::SameLine();
    if (drawButton({"Reset failed", failed ? "Captures that failed wait again." : "No capture has failed.", failed})) {
      form.list().resetFailed();
    }
  }
  ImGui::SameLine();
  ImGui::AlignTextToFramePadding();
  ImGui::TextUnformatted(form.stopping() ? "Stopping..." : form.summary().c_str());
}

void drawMessages(BatchForm& form) {
  if (form.list().busy()) drawSpinner(form.list().busyText());
  for (const std::string& message : form.messages()) drawWarning(message);
  if (!form.messages().empty() && ImGui::Button("Dismiss")) form.messages().clear();
}

void drawQuestion(BatchForm& form) {
  if (!form.list().question().empty() && !ImGui::IsPopupOpen(kQuestion)) ImGui::OpenPopup(kQuestion);
  if (!ImGui::BeginPopupModal(kQuestion, nullptr, ImGuiWindowFlags_AlwaysAutoResize)) return;
  ImGui::PushTextWrapPos(em(30));
  ImGui::TextUnformatted(form.list().question().c_str());
  ImGui::PopTextWrapPos();
  if (ImGui::Button("Replace")) form.list().answer(true);
  ImGui::SameLine();
  if (ImGui::Button("Keep it")) form.list().answer(false);
  if (form.list().question().empty()) ImGui::CloseCurrentPopup();
  ImGui::EndPopup();
}

}  // namespace

void drawBatchWindow(BatchForm& form, const PanelContext& context, bool& open) {
  if (!open) return;
  ImGui::SetNextWindowSize({em(58), em(36)}, ImGuiCond_FirstUseEver);
  if (ImGui::Begin("Batch", &open)) {
    drawAdding(form, context);
    drawDestination(form, context);
    drawRun(form);
    drawMessages(form);
    ImGui::Separator();
    ImGui::BeginChild("queue and settings");
    drawQueue(form);
    if (!form.rows().empty()) drawSettingsOfItems(form);
    ImGui::EndChild();
    drawQuestion(form);
  }
  ImGui::End();
}

}  // namespace quor::ui
