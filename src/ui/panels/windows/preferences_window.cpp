#include "ui/panels/windows/preferences_window.h"

#include <imgui.h>
#include <imgui_stdlib.h>

#include <array>
#include <cmath>

#include "base/files/paths.h"
#include "base/text/text.h"
#include "ui/models/files/file_dialog.h"
#include "ui/panels/widgets.h"

namespace quor::ui {

namespace {

constexpr std::array kScales = {0.75F, 1.0F, 1.25F, 1.5F, 1.75F, 2.0F, 2.5F, 3.0F};

void drawTool(PreferencesForm& form, PreferencesForm::Tool tool, const char* title, std::string& path,
              const PanelContext& context) {
  ImGui::PushID(title);
  drawHeading(title);
  const float buttons = em(9);
  ImGui::SetNextItemWidth(-buttons);
  ImGui::InputTextWithHint("##path", "Found by itself", &path);
  drawTooltip(
      "The program, or the folder that holds it. Empty: it is looked for beside Ombrelux, on the PATH and where "
      "installers put it.");
  ImGui::SameLine();
  const auto choose = [&](const char* label, FileDialog::Kind kind) {
    if (!drawButton({label, kind == FileDialog::Kind::OpenFolder ? "Choose the folder." : "Choose the program."}))
      return;
    context.dialogs.ask({kind, title, {}, {}, {}}, [&path](const std::vector<std::filesystem::path>& chosen) {
      if (!chosen.empty()) path = toUtf8(chosen.front());
    });
  };
  choose("Folder", FileDialog::Kind::OpenFolder);
  ImGui::SameLine();
  choose("File", FileDialog::Kind::OpenFiles);
  const PreferencesForm::Finding finding = form.finding(tool);
  finding.missing || finding.misguided ? drawWarning(finding.text) : drawFaint(finding.text);
  ImGui::PopID();
}

void drawDevices(PreferencesForm& form) {
  drawHeading("Graphics device");
  form.listDevices();
  if (!form.deviceMessage().empty()) return drawWarning(form.deviceMessage());
  if (form.devices().empty()) return drawSpinner("Looking for devices");
  for (size_t i = 0; i < form.devices().size(); ++i) {
    ImGui::PushID(static_cast<int>(i));
    if (ImGui::RadioButton("##device", form.chosenDevice() == i)) form.chooseDevice(i);
    ImGui::PopID();
    ImGui::SameLine();
    drawWrapped(form.devices()[i]);
  }
  if (form.chosenDevice() >= form.devices().size()) drawWarning("The device that was chosen is not there any more.");
  if (form.deviceNeedsRestart()) drawWarning("Takes effect at the next start.");
}

void drawView(Preferences& preferences) {
  drawHeading("View");
  ImGui::Checkbox("Show the scene while it trains", &preferences.visualizer);
  drawTooltip("Takes a few milliseconds now and then from training. Projects can also turn it off for themselves.");
  ImGui::SetNextItemWidth(em(7));
  const auto percent = [](float scale) { return formatText("%ld %%", std::lround(scale * 100)); };
  if (ImGui::BeginCombo("Size of the interface", percent(preferences.uiScale).c_str())) {
    for (const float scale : kScales) {
      if (ImGui::Selectable(percent(scale).c_str(), preferences.uiScale == scale)) preferences.uiScale = scale;
    }
    ImGui::EndCombo();
  }
  drawTooltip("On top of the scale of the display.");
}

}  // namespace

void drawPreferencesWindow(PreferencesForm& form, const PanelContext& context, bool& open) {
  if (!open) return;
  ImGui::SetNextWindowSize({em(38), em(32)}, ImGuiCond_FirstUseEver);
  if (ImGui::Begin("Preferences", &open)) {
    Preferences& preferences = form.preferences();
    drawTool(form, PreferencesForm::Tool::Colmap, "COLMAP", preferences.colmapPath, context);
    drawFaint("COLMAP finds where each photograph was taken from.");
    drawTool(form, PreferencesForm::Tool::Ffmpeg, "ffmpeg", preferences.ffmpegPath, context);
    drawDevices(form);
    drawView(preferences);
    if (!form.saveMessage().empty()) drawWarning(form.saveMessage());
  }
  ImGui::End();
}

}  // namespace quor::ui
