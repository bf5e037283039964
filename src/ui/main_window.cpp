#include "ui/main_window.h"

#include <imgui.h>

#include <algorithm>
#include <utility>

#include "base/files/paths.h"
#include "ui/panels/graphs_panel.h"
#include "ui/panels/log_panel.h"
#include "ui/panels/new_media_panel.h"
#include "ui/panels/notices.h"
#include "ui/panels/results_panel.h"
#include "ui/panels/stages_panel.h"
#include "ui/panels/training_settings_panel.h"
#include "ui/panels/widgets.h"
#include "ui/panels/windows/about_window.h"
#include "ui/panels/windows/batch_window.h"
#include "ui/panels/windows/dataset_import_window.h"
#include "ui/panels/windows/file_browser_panel.h"
#include "ui/panels/windows/preferences_window.h"

namespace quor::ui {
namespace {

constexpr const char* kRebuildTitle = "Build again?";

// A bar between two panels that a drag moves.
void splitter(const char* id, bool vertical, float& size, float least, float most, float sign) {
  const float thickness = 0.35f * ImGui::GetFontSize();
  const ImVec2 room = ImGui::GetContentRegionAvail();
  ImGui::InvisibleButton(id, vertical ? ImVec2(thickness, room.y) : ImVec2(room.x, thickness));
  if (ImGui::IsItemHovered() || ImGui::IsItemActive()) {
    ImGui::SetMouseCursor(vertical ? ImGuiMouseCursor_ResizeEW : ImGuiMouseCursor_ResizeNS);
  }
  if (ImGui::IsItemActive()) {
    const ImVec2 moved = ImGui::GetIO().MouseDelta;
    size += sign * (vertical ? moved.x : moved.y);
  }
  size = std::clamp(size, least, std::max(least, most));
}

}  // namespace

MainWindow::MainWindow(const Parts& parts, const WindowState& state)
    : parts_(parts),
      closing_(parts.workspace, parts.batch),
      showSide_(state.isOpen("side", true)),
      showBottom_(state.isOpen("bottom", true)) {}

std::map<std::string, bool> MainWindow::openPanels() const {
  return {{"side", showSide_}, {"bottom", showBottom_}};
}

std::string MainWindow::title() const {
  const std::optional<Project>& project = parts_.workspace.project();
  if (project) return project->name + " — Ombrelux";
  const std::filesystem::path& scene = parts_.workspace.view().scene;
  return scene.empty() ? "Ombrelux" : toUtf8(scene.filename()) + " — Ombrelux";
}

void MainWindow::draw(const PanelContext& context) {
  drawMenus();
  drawBody(context);
  drawWindows(context);
  drawRebuildQuestion();
  closing_.draw();
}

void MainWindow::drawBody(const PanelContext& context) {
  const ImGuiViewport& screen = *ImGui::GetMainViewport();
  ImGui::SetNextWindowPos(screen.WorkPos);
  ImGui::SetNextWindowSize(screen.WorkSize);
  constexpr ImGuiWindowFlags kFixed = ImGuiWindowFlags_NoDecoration | ImGuiWindowFlags_NoMove |
                                      ImGuiWindowFlags_NoSavedSettings | ImGuiWindowFlags_NoBringToFrontOnFocus |
                                      ImGuiWindowFlags_NoScrollWithMouse | ImGuiWindowFlags_NoNavFocus;
  ImGui::PushStyleVar(ImGuiStyleVar_WindowRounding, 0);
  ImGui::Begin("body", nullptr, kFixed);
  ImGui::PopStyleVar();
  const float unit = ImGui::GetFontSize();
  if (sideWidth_ == 0) sideWidth_ = std::min(25 * unit, 0.4f * screen.WorkSize.x);
  if (bottomHeight_ == 0) bottomHeight_ = std::min(11 * unit, 0.3f * screen.WorkSize.y);
  ImGui::PushStyleVar(ImGuiStyleVar_ItemSpacing, {0, 0});
  if (showSide_) {
    ImGui::BeginChild("side", {sideWidth_, 0}, false, ImGuiWindowFlags_AlwaysUseWindowPadding);
    ImGui::PopStyleVar();
    drawSide(context);
    ImGui::PushStyleVar(ImGuiStyleVar_ItemSpacing, {0, 0});
    ImGui::EndChild();
    ImGui::SameLine();
    splitter("side edge", true, sideWidth_, 16 * unit, screen.WorkSize.x - 20 * unit, 1);
    ImGui::SameLine();
  }
  ImGui::BeginChild("main", {0, 0}, false, ImGuiWindowFlags_NoScrollbar | ImGuiWindowFlags_NoScrollWithMouse);
  const float bottom = showBottom_ ? bottomHeight_ + 0.35f * unit : 0;
  ImGui::BeginChild("view", {0, -bottom}, false, ImGuiWindowFlags_NoScrollbar | ImGuiWindowFlags_NoScrollWithMouse);
  ImGui::PopStyleVar();
  parts_.viewportPanel.draw(parts_.about.queues, viewHint());
  ImGui::PushStyleVar(ImGuiStyleVar_ItemSpacing, {0, 0});
  ImGui::EndChild();
  if (showBottom_) {
    splitter("bottom edge", false, bottomHeight_, 5 * unit, screen.WorkSize.y - 12 * unit, -1);
    ImGui::BeginChild("bottom", {0, 0}, false, ImGuiWindowFlags_AlwaysUseWindowPadding);
    ImGui::PopStyleVar();
    drawBottom(context);
    ImGui::PushStyleVar(ImGuiStyleVar_ItemSpacing, {0, 0});
    ImGui::EndChild();
  }
  ImGui::EndChild();
  ImGui::PopStyleVar();
  ImGui::End();
}

void MainWindow::drawSide(const PanelContext& context) {
  Workspace& workspace = parts_.workspace;
  if (workspace.loading()) {
    ImGui::TextDisabled("%s", workspace.session().taskText().c_str());
    ImGui::ProgressBar(-1.0f * static_cast<float>(ImGui::GetTime()), {-1, 0.3f * ImGui::GetFontSize()}, "");
  }
  if (!workspace.project() && workspace.view().scene.empty()) {
    drawStart();
    return;
  }
  if (!ImGui::BeginTabBar("side tabs")) return;
  if (workspace.project() && ImGui::BeginTabItem("Project")) {
    drawStagesPanel(workspace);
    ImGui::EndTabItem();
  }
  if (ImGui::BeginTabItem("Results")) {
    drawResultsPanel(workspace.results(), context);
    ImGui::EndTabItem();
  }
  if (workspace.project() && ImGui::BeginTabItem("Settings")) {
    drawTrainingSettingsPanel(workspace, context);
    ImGui::EndTabItem();
  }
  ImGui::EndTabBar();
}

// The side panel while nothing is open.
void MainWindow::drawStart() {
  const float unit = ImGui::GetFontSize();
  ImGui::Dummy({0, unit});
  ImGui::TextWrapped("Drop a folder of photographs, a video, a project or a scene anywhere in this window.");
  ImGui::Dummy({0, unit});
  const ImVec2 wide = {-1, 2.2f * unit};
  if (ImGui::Button("Folder of photographs or video...", wide)) newFromMedia(true);
  if (ImGui::Button("Photographs or video...", wide)) newFromMedia(false);
  if (ImGui::Button("Open a project...", wide)) openPath(FileDialog::Kind::OpenFolder);
  if (ImGui::Button("Open a scene...", wide)) openPath(FileDialog::Kind::OpenFiles);
  if (parts_.workspace.run().colmapMissing()) {
    ImGui::Dummy({0, unit});
    ImGui::TextWrapped("%s", kNoColmap);
    if (ImGui::Button("Preferences...")) showPreferences_ = true;
  }
  const std::vector<std::string>& recent = parts_.preferences.preferences().recentProjects;
  if (recent.empty()) return;
  ImGui::Dummy({0, unit});
  ImGui::TextDisabled("Recent projects");
  std::string chosen;
  for (const std::string& project : recent) {
    const std::string name = toUtf8(fromUtf8(project).filename());
    ImGui::PushID(project.c_str());  // two folders may have one name
    if (ImGui::Selectable(name.c_str())) chosen = project;
    ImGui::PopID();
    if (ImGui::IsItemHovered()) ImGui::SetTooltip("%s", project.c_str());
  }
  if (!chosen.empty()) parts_.workspace.open({fromUtf8(chosen)});
}

void MainWindow::drawBottom(const PanelContext& context) {
  if (!ImGui::BeginTabBar("bottom tabs")) return;
  if (ImGui::BeginTabItem("Graphs")) {
    drawGraphsPanel(parts_.history, context);
    ImGui::EndTabItem();
  }
  if (ImGui::BeginTabItem("Log")) {
    drawLogPanel(parts_.log, context);
    ImGui::EndTabItem();
  }
  ImGui::EndTabBar();
}

void MainWindow::drawWindows(const PanelContext& context) {
  if (showBatch_) drawBatchWindow(parts_.batch, context, showBatch_);
  if (showPreferences_) drawPreferencesWindow(parts_.preferences, context, showPreferences_);
  if (showAbout_) drawAboutWindow(parts_.about, context, showAbout_);
  if (FileBrowser* browser = parts_.dialogs.browser()) drawFileBrowserPanel(*browser, context);
  drawNewMediaWindow(parts_.workspace.newMedia(), context);
  drawComparisonWindow(parts_.workspace.results(), context);
  drawDatasetImportWindow(parts_.workspace.session(), context);
  drawNotices(parts_.workspace.notices(), context);
}

void MainWindow::drawRebuildQuestion() {
  if (std::exchange(askToRebuild_, false)) ImGui::OpenPopup(kRebuildTitle);
  ImGui::SetNextWindowPos(ImGui::GetMainViewport()->GetCenter(), ImGuiCond_Appearing, {0.5F, 0.5F});
  if (!ImGui::BeginPopupModal(kRebuildTitle, nullptr, ImGuiWindowFlags_AlwaysAutoResize)) return;
  ProjectRun& run = parts_.workspace.run();
  const std::string question = run.rebuildQuestion();
  ImGui::PushTextWrapPos(em(28));
  ImGui::TextUnformatted(question.c_str());
  ImGui::PopTextWrapPos();
  ImGui::Dummy({0, em(0.5F)});
  const bool again = ImGui::Button("Build again");
  ImGui::SameLine();
  const bool keep = ImGui::Button("Keep what is there") || question.empty() ||
                    ImGui::IsKeyPressed(ImGui::GetKeyIndex(ImGuiKey_Escape), false);
  if (again) run.build();
  if (again || keep) ImGui::CloseCurrentPopup();
  ImGui::EndPopup();
}

// Stands where the scene will be.
std::string MainWindow::viewHint() const {
  if (!parts_.workspace.project()) return "Drop photographs, a video, a project or a scene here.";
  return parts_.workspace.busy() ? "The scene appears here as soon as the cameras are solved."
                                 : "There is no scene yet. Run the project's stages to build one.";
}

}  // namespace quor::ui
