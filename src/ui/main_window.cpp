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

void menuItem(const Button& button, const char* shortcut, const std::function<void()>& act) {
  if (ImGui::MenuItem(button.label.c_str(), shortcut, false, button.enabled)) act();
  if (ImGui::IsItemHovered(ImGuiHoveredFlags_AllowWhenDisabled)) ImGui::SetTooltip("%s", button.hint.c_str());
}

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

void MainWindow::press(const Shortcut& shortcut) {
  if (ImGui::IsPopupOpen(nullptr, ImGuiPopupFlags_AnyPopupId | ImGuiPopupFlags_AnyPopupLevel)) return;
  Workspace& workspace = parts_.workspace;
  switch (shortcut.key) {
    case 'N':
      return newFromMedia(true);
    case 'O':
      return openPath(shortcut.shift ? FileDialog::Kind::OpenFiles : FileDialog::Kind::OpenFolder);
    case 'W':
      if (!workspace.busy()) workspace.session().close();
      return;
    case 'Q':
      return closing_.ask();
    case 'B':
      showBatch_ = true;
      return;
    case ',':
      showPreferences_ = true;
      return;
    case 'E':
      if (workspace.results().exportButton(ExportFormat::Ply).enabled) exportScene(ExportFormat::Ply);
      return;
    case 'R':
      return build();
    case '1':
      showSide_ = !showSide_;
      return;
    case '2':
      showBottom_ = !showBottom_;
      return;
    default:
      return;
  }
}

void MainWindow::newFromMedia(bool folder) {
  FileDialog::Request request;
  request.kind = folder ? FileDialog::Kind::OpenFolder : FileDialog::Kind::OpenFiles;
  request.title = folder ? "Folder of photographs or video" : "Photographs or video";
  parts_.dialogs.ask(request, [this](const std::vector<std::filesystem::path>& chosen) {
    if (!chosen.empty()) parts_.workspace.newMedia().add(chosen);
  });
}

void MainWindow::openPath(FileDialog::Kind kind) {
  FileDialog::Request request;
  request.kind = kind;
  request.title = kind == FileDialog::Kind::OpenFolder ? "Project, dataset or media folder" : "Scene or checkpoint";
  if (kind == FileDialog::Kind::OpenFiles) request.extensions = {"ply", "quor"};
  parts_.dialogs.ask(request, [this](const std::vector<std::filesystem::path>& chosen) {
    if (!chosen.empty()) parts_.workspace.open(chosen);
  });
}

// A key that is hit by mistake must not make hours of work anew.
void MainWindow::build() {
  ProjectRun& run = parts_.workspace.run();
  if (run.rebuildQuestion().empty()) return run.build();  // does nothing when it cannot
  askToRebuild_ = true;
}

void MainWindow::exportScene(ExportFormat format) {
  FileDialog::Request request;
  request.kind = FileDialog::Kind::SaveFile;
  request.title = "Save the scene as";
  request.suggestedName = parts_.workspace.results().suggestedName(format);
  request.extensions = {format == ExportFormat::Ply ? "ply" : "splat"};
  parts_.dialogs.ask(request, [this, format](const std::vector<std::filesystem::path>& chosen) {
    if (!chosen.empty()) parts_.workspace.results().exportScene(format, chosen.front());
  });
}

void MainWindow::drawMenus() {
  if (!ImGui::BeginMainMenuBar()) return;
  if (ImGui::BeginMenu("File")) {
    drawFileMenu();
    ImGui::EndMenu();
  }
  if (ImGui::BeginMenu("Project")) {
    drawProjectMenu();
    ImGui::EndMenu();
  }
  if (ImGui::BeginMenu("View")) {
    drawViewMenu();
    ImGui::EndMenu();
  }
  if (ImGui::BeginMenu("Help")) {
    if (ImGui::MenuItem("About Ombrelux")) showAbout_ = true;
    if (ImGui::MenuItem("Open the folder of logs")) parts_.workspace.openFolder(applicationLogFile().parent_path());
    ImGui::EndMenu();
  }
  ImGui::EndMainMenuBar();
}

void MainWindow::drawFileMenu() {
  if (ImGui::MenuItem("New from a folder...", "Ctrl+N")) newFromMedia(true);
  if (ImGui::MenuItem("New from photographs or video...")) newFromMedia(false);
  ImGui::Separator();
  if (ImGui::MenuItem("Open a folder...", "Ctrl+O")) openPath(FileDialog::Kind::OpenFolder);
  if (ImGui::MenuItem("Open a scene...", "Ctrl+Shift+O")) openPath(FileDialog::Kind::OpenFiles);
  drawRecentMenu();
  if (ImGui::MenuItem("Import a COLMAP dataset...")) parts_.workspace.session().datasetImport().visible = true;
  const bool open = parts_.workspace.project() || !parts_.workspace.view().scene.empty();
  if (ImGui::MenuItem("Close", "Ctrl+W", false, open && !parts_.workspace.busy())) parts_.workspace.session().close();
  ImGui::Separator();
  menuItem(parts_.workspace.results().exportButton(ExportFormat::Ply), "Ctrl+E",
           [&] { exportScene(ExportFormat::Ply); });
  menuItem(parts_.workspace.results().exportButton(ExportFormat::Splat), nullptr,
           [&] { exportScene(ExportFormat::Splat); });
  ImGui::Separator();
  if (ImGui::MenuItem("Batch...", "Ctrl+B")) showBatch_ = true;
  if (ImGui::MenuItem("Preferences...", "Ctrl+,")) showPreferences_ = true;
  ImGui::Separator();
  if (ImGui::MenuItem("Quit", "Ctrl+Q")) closing_.ask();
}

void MainWindow::drawRecentMenu() {
  const std::vector<std::string>& recent = parts_.preferences.preferences().recentProjects;
  if (!ImGui::BeginMenu("Recent projects", !recent.empty())) return;
  std::string chosen;
  for (const std::string& project : recent) {
    if (ImGui::MenuItem(project.c_str())) chosen = project;
  }
  if (!chosen.empty()) parts_.workspace.open({fromUtf8(chosen)});
  ImGui::EndMenu();
}

void MainWindow::drawProjectMenu() {
  Workspace& workspace = parts_.workspace;
  menuItem(workspace.run().buildButton(), "Ctrl+R", [&] { build(); });
  for (const StageRow& row : workspace.run().stages()) {
    if (row.stage == Stage::Frames) continue;  // the same as to build
    Button button = row.runFrom;
    button.label = row.stage == Stage::Train ? "Train from the start" : "Run from " + row.name + " on";
    menuItem(button, nullptr, [&] { workspace.run().start(row.stage, Stage::Train); });
  }
  const int upTo = workspace.run().continuationTarget();
  menuItem(workspace.run().continueButton(upTo), nullptr, [&] { workspace.run().continueTraining(upTo); });
  ImGui::Separator();
  menuItem(workspace.run().stopButton(), nullptr, [&] { workspace.run().stopTraining(); });
  menuItem(workspace.run().cancelButton(), nullptr, [&] { workspace.run().cancel(); });
  ImGui::Separator();
  menuItem(workspace.results().folderButton(), nullptr, [&] { workspace.results().openFolder(); });
}

void MainWindow::drawViewMenu() {
  ImGui::MenuItem("Side panel", "Ctrl+1", &showSide_);
  ImGui::MenuItem("Log and graphs", "Ctrl+2", &showBottom_);
  ImGui::Separator();
  ImGui::MenuItem("Live view during training", nullptr, &parts_.preferences.preferences().visualizer);
  ImGui::MenuItem("Cameras", nullptr, &parts_.viewport.showCameras);
  if (ImGui::MenuItem("Reset view", "R")) parts_.viewport.reset();
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
    ImGui::BeginChild("side", {sideWidth_, 0}, false);
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
    ImGui::BeginChild("bottom", {0, 0}, false);
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

// Nothing is open: what one can do.
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
