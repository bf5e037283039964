#include "ui/panels/windows/file_browser_panel.h"

#include <imgui.h>
#include <imgui_stdlib.h>

#include "base/files/paths.h"
#include "ui/models/number_text.h"
#include "ui/panels/widgets.h"

namespace quor::ui {

namespace {

constexpr const char* kNewFolder = "New folder";
constexpr const char* kReplace = "Replace the file?";

void drawPath(FileBrowser& browser) {
  if (drawButton({"Up", "To the folder that holds this one.", browser.canGoUp()})) browser.goUp();
  ImGui::SameLine();
  if (drawButton({kNewFolder, "Makes a folder in this one."})) ImGui::OpenPopup(kNewFolder);
  ImGui::SameLine();
  ImGui::SetNextItemWidth(-1);
  if (ImGui::InputText("##path", &browser.pathText(), ImGuiInputTextFlags_EnterReturnsTrue)) browser.goToPathText();

  if (!ImGui::BeginPopup(kNewFolder)) return;
  if (ImGui::IsWindowAppearing()) ImGui::SetKeyboardFocusHere();
  const bool entered =
      ImGui::InputTextWithHint("##name", "Name", &browser.newFolderName(), ImGuiInputTextFlags_EnterReturnsTrue);
  ImGui::SameLine();
  if (ImGui::Button("Make") || entered) {
    browser.createFolder();
    ImGui::CloseCurrentPopup();
  }
  ImGui::EndPopup();
}

void drawPlaces(FileBrowser& browser) {
  for (const Place& place : browser.places()) {
    ImGui::PushID(&place);
    if (ImGui::Selectable(place.name.c_str(), place.folder == browser.folder())) browser.go(place.folder);
    drawTooltip(toUtf8(place.folder));
    ImGui::PopID();
  }
}

void drawEntry(FileBrowser& browser, size_t index) {
  const FolderEntry& entry = browser.entries()[index];
  ImGui::TableNextRow();
  ImGui::TableNextColumn();
  ImGui::PushID(static_cast<int>(index));
  const std::string label = entry.isFolder ? entry.name + "/" : entry.name;
  const ImGuiSelectableFlags flags = ImGuiSelectableFlags_SpanAllColumns | ImGuiSelectableFlags_AllowDoubleClick;
  if (ImGui::Selectable("##entry", browser.isSelected(index), flags)) {
    const ImGuiIO& io = ImGui::GetIO();
    if (ImGui::IsMouseDoubleClicked(ImGuiMouseButton_Left)) {
      browser.activate(index);
    } else {
      browser.select(index, io.KeyCtrl, io.KeyShift);
    }
  }
  ImGui::SameLine(0, 0);
  ImGui::TextUnformatted(label.c_str());
  ImGui::TableNextColumn();
  if (!entry.isFolder) ImGui::TextDisabled("%s", sizeText(entry.bytes).c_str());
  ImGui::PopID();
}

void drawEntries(FileBrowser& browser) {
  const ImGuiTableFlags flags = ImGuiTableFlags_ScrollY | ImGuiTableFlags_RowBg | ImGuiTableFlags_BordersOuter;
  if (!ImGui::BeginTable("entries", 2, flags)) return;
  ImGui::TableSetupScrollFreeze(0, 1);
  ImGui::TableSetupColumn("Name", ImGuiTableColumnFlags_WidthStretch);
  ImGui::TableSetupColumn("Size", ImGuiTableColumnFlags_WidthFixed, em(6));
  ImGui::TableHeadersRow();
  ImGuiListClipper clipper;
  clipper.Begin(static_cast<int>(browser.entries().size()));
  while (clipper.Step()) {
    for (int i = clipper.DisplayStart; i < clipper.DisplayEnd; ++i) drawEntry(browser, static_cast<size_t>(i));
  }
  ImGui::EndTable();
}

void drawMessage(const FileBrowser& browser) {
  if (browser.loading()) {
    drawSpinner("Reading the folder");
  } else if (!browser.message().empty()) {
    drawWarning(browser.message());
  } else if (browser.entries().empty()) {
    const bool folders = browser.request().kind == DialogKind::OpenFolder;
    drawFaint(folders ? "There are no folders in here." : "There is nothing to choose in here.");
  } else {
    ImGui::TextUnformatted("");  // the rest keeps its place
  }
}

void drawOptions(FileBrowser& browser) {
  bool hidden = browser.showsHidden();
  if (ImGui::Checkbox("Hidden files", &hidden)) browser.showHidden(hidden);
  if (browser.request().extensions.empty() || browser.request().kind == DialogKind::OpenFolder) return;
  bool all = browser.showsAllFiles();
  ImGui::SameLine();
  if (ImGui::Checkbox("All kinds of files", &all)) browser.showAllFiles(all);
}

void drawReplaceQuestion(FileBrowser& browser) {
  if (browser.toBeReplaced() && !ImGui::IsPopupOpen(kReplace)) ImGui::OpenPopup(kReplace);
  if (!ImGui::BeginPopupModal(kReplace, nullptr, ImGuiWindowFlags_AlwaysAutoResize)) return;
  if (browser.toBeReplaced()) {
    ImGui::PushTextWrapPos(em(30));
    ImGui::Text("%s is there already. Its contents will be lost.", toUtf8(*browser.toBeReplaced()).c_str());
    ImGui::PopTextWrapPos();
    if (ImGui::Button("Replace")) browser.replace(true);
    ImGui::SameLine();
    if (ImGui::Button("Keep it")) browser.replace(false);
  }
  if (!browser.toBeReplaced()) ImGui::CloseCurrentPopup();
  ImGui::EndPopup();
}

void drawEnd(FileBrowser& browser) {
  bool entered = false;
  if (browser.request().kind == DialogKind::SaveFile) {
    ImGui::SetNextItemWidth(-1);
    entered = ImGui::InputTextWithHint("##file", "Name of the file", &browser.fileName(),
                                       ImGuiInputTextFlags_EnterReturnsTrue);
  }
  const std::string refusal = browser.whyNotAccept();
  if (drawButton({browser.acceptLabel(), refusal, refusal.empty()}, em(9)) || entered) browser.accept();
  ImGui::SameLine();
  if (ImGui::Button("Cancel", {em(6), 0})) browser.giveUp();
  const bool alone = ImGui::IsWindowFocused(ImGuiFocusedFlags_RootAndChildWindows) && !ImGui::IsAnyItemActive();
  if (alone && ImGui::IsKeyPressed(ImGui::GetKeyIndex(ImGuiKey_Escape))) browser.giveUp();
}

}  // namespace

void drawFileBrowserPanel(FileBrowser& browser, const PanelContext&) {
  const std::string title = browser.request().title.empty() ? "Choose" : browser.request().title;
  const std::string id = title + "###file browser";
  if (!ImGui::IsPopupOpen(id.c_str())) ImGui::OpenPopup(id.c_str());
  const ImVec2 screen = ImGui::GetMainViewport()->Size;
  ImGui::SetNextWindowPos(ImGui::GetMainViewport()->GetCenter(), ImGuiCond_Appearing, {0.5F, 0.5F});
  ImGui::SetNextWindowSize({std::min(em(50), screen.x * 0.9F), std::min(em(34), screen.y * 0.9F)}, ImGuiCond_Appearing);
  bool open = true;
  if (!ImGui::BeginPopupModal(id.c_str(), &open)) return;
  drawPath(browser);
  const float below = em(browser.request().kind == DialogKind::SaveFile ? 8.5F : 6.5F);
  ImGui::BeginChild("places", {em(10), -below}, true);
  drawPlaces(browser);
  ImGui::EndChild();
  ImGui::SameLine();
  ImGui::BeginChild("folder", {0, -below});
  drawEntries(browser);
  ImGui::EndChild();
  drawMessage(browser);
  drawOptions(browser);
  drawEnd(browser);
  drawReplaceQuestion(browser);
  if (browser.answer()) ImGui::CloseCurrentPopup();
  ImGui::EndPopup();
  if (!open) browser.giveUp();
}

}  // namespace quor::ui
