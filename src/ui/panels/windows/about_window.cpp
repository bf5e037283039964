#include "ui/panels/windows/about_window.h"

#include <imgui.h>

#include "base/files/paths.h"
#include "ui/panels/widgets.h"

namespace quor::ui {

namespace {

void drawPlace(const char* title, const std::string& path, bool isFolder, const PanelContext& context) {
  ImGui::PushID(title);
  const std::filesystem::path file = fromUtf8(path);
  if (ImGui::Button("Show") && context.openFolder) context.openFolder(isFolder ? file : file.parent_path());
  drawTooltip("Opens its folder, if there is one yet.");
  ImGui::SameLine();
  drawWrapped(std::string(title) + ": " + path);
  ImGui::PopID();
}

void drawLibraries() {
  if (!ImGui::BeginTable("libraries", 3, ImGuiTableFlags_RowBg | ImGuiTableFlags_SizingStretchProp)) return;
  for (const Library& library : usedLibraries()) {
    ImGui::TableNextRow();
    for (const char* text : {library.name, library.use, library.licence}) {
      ImGui::TableNextColumn();
      drawWrapped(text);
    }
  }
  ImGui::EndTable();
}

}  // namespace

void drawAboutWindow(const About& about, const PanelContext& context, bool& open) {
  if (!open) return;
  ImGui::SetNextWindowSize({em(40), em(34)}, ImGuiCond_FirstUseEver);
  if (ImGui::Begin("About Ombrelux", &open)) {
    drawHeading(about.version.c_str());
    drawWrapped("Turns photographs and video into 3D Gaussian splat scenes, on this computer alone.");
    drawWrapped(about.device);
    drawFaint(about.queues);
    if (drawButton({"Copy", "Puts these lines on the clipboard, for a report."})) {
      ImGui::SetClipboardText(about.copyText().c_str());
    }
    drawHeading("Where things lie");
    drawPlace("Log", about.logFile, false, context);
    drawPlace("Settings", about.settingsFile, false, context);
    drawPlace("Crash reports", about.crashFolder, true, context);
    drawHeading("Made with");
    drawLibraries();
  }
  ImGui::End();
}

}  // namespace quor::ui
