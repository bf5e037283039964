// The menus of the main window, their keys, and the dialogs behind them.
#include <imgui.h>

#include "base/files/paths.h"
#include "ui/main_window.h"

namespace quor::ui {
namespace {

void menuItem(const Button& button, const char* shortcut, const std::function<void()>& act) {
  if (ImGui::MenuItem(button.label.c_str(), shortcut, false, button.enabled)) act();
  if (ImGui::IsItemHovered(ImGuiHoveredFlags_AllowWhenDisabled)) ImGui::SetTooltip("%s", button.hint.c_str());
}

}  // namespace

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
    const bool train = row.stage == Stage::Train;
    if (row.stage == Stage::Frames) continue;  // the same as to build
    if (!train && workspace.project() && !workspace.project()->externalDataset.empty()) continue;
    Button button = row.runFrom;
    button.label = train ? "Train from the start" : row.name + ", then training";
    menuItem(button, nullptr, [&] { workspace.run().start(row.stage, Stage::Train); });
  }
  const int upTo = workspace.run().continuationTarget();
  menuItem(workspace.run().continueButton(upTo), nullptr, [&] { workspace.run().continueTraining(upTo); });
  ImGui::Separator();
  menuItem(workspace.run().stopButton(), nullptr, [&] { workspace.run().stop(); });
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

}  // namespace quor::ui
