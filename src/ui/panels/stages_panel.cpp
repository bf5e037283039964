#include "ui/panels/stages_panel.h"

#include <imgui.h>

#include "base/files/paths.h"
#include "ui/models/files/file_dialog.h"
#include "ui/panels/widgets.h"

namespace quor::ui {

namespace {

namespace fs = std::filesystem;

void drawRecent(Workspace& workspace) {
  if (workspace.recentProjects().empty()) return;
  drawHeading("Recent projects");
  for (const std::string& recent : workspace.recentProjects()) {
    const std::string name = toUtf8(fromUtf8(recent).filename());
    ImGui::PushID(recent.c_str());
    const bool chosen = ImGui::Selectable(name.empty() ? recent.c_str() : name.c_str());
    drawTooltip(recent);
    ImGui::PopID();
    if (!chosen) continue;
    workspace.open({fromUtf8(recent)});
    break;
  }
}

void drawBeginning(Workspace& workspace, const PanelContext& context) {
  drawWrapped("Drop photographs, a video, a project or a .ply scene onto this window.");
  ImGui::Dummy({0, em(0.3F)});
  if (drawPrimaryButton({"New from photos or video...", "Makes a project from pictures and builds its scene.", true},
                        -1)) {
    workspace.newMedia().visible = true;
  }
  const auto open = [&workspace](const std::vector<fs::path>& paths) { workspace.open(paths); };
  ImGui::BeginDisabled(context.dialogs.open());
  if (ImGui::Button("Open project or dataset...", {-1, 0})) {
    context.dialogs.ask({FileDialog::Kind::OpenFolder, "Project or COLMAP dataset", {}, {}}, open);
  }
  if (ImGui::Button("Open scene...", {-1, 0})) {
    context.dialogs.ask({FileDialog::Kind::OpenFiles, "Scene or checkpoint", {"ply", "quor"}, {}}, open);
  }
  ImGui::EndDisabled();
  drawRecent(workspace);
}

void drawInputs(const Project& project) {
  drawWrapped(project.name);
  drawFaint(toUtf8(project.root));
  if (!project.externalDataset.empty()) {
    drawFaint("COLMAP dataset: " + project.externalDataset);
    return;
  }
  if (!ImGui::TreeNode("inputs", "Made from %zu %s", project.inputs.size(),
                       project.inputs.size() == 1 ? "source" : "sources")) {
    return;
  }
  for (const InputSource& input : project.inputs) drawFaint(std::string(kindLabel(input.kind)) + ": " + input.path);
  ImGui::TreePop();
}

const char* stateWord(StageState state) {
  switch (state) {
    case StageState::Running:
      return "running";
    case StageState::Done:
      return "done";
    case StageState::Failed:
      return "not finished";
    case StageState::NotRun:
      break;
  }
  return "";
}

void drawProgress(const StageRow& row) {
  if (row.fraction < 0) {
    drawSpinner(row.text);
    return;
  }
  const std::string percent = std::to_string(static_cast<int>(row.fraction * 100)) + " %";
  ImGui::ProgressBar(row.fraction, {-1, 0}, percent.c_str());
  drawWrapped(row.text);
  if (!row.timeLeft.empty()) drawFaint(row.timeLeft);
}

void drawStage(Workspace& workspace, const StageRow& row) {
  ImGui::PushID(static_cast<int>(row.stage));
  drawHeading(row.name.c_str());
  if (row.state == StageState::Running) {
    drawProgress(row);
  } else if (row.state == StageState::Failed) {
    drawWarning(row.text);
  } else {
    drawFaint(row.state == StageState::NotRun ? row.text : row.text + " (" + stateWord(row.state) + ")");
  }
  if (drawButton(row.runFrom)) workspace.start(row.stage, Stage::Train);
  if (row.stage != Stage::Train) {
    ImGui::SameLine();
    if (drawButton(row.runOnly)) workspace.start(row.stage, row.stage);
  }
  ImGui::PopID();
}

void drawContinuing(Workspace& workspace) {
  if (!workspace.hasCheckpoint() || workspace.busy()) return;
  const int target = workspace.continuationTarget();
  if (drawButton(workspace.continueButton(target), -1)) workspace.continueTraining(target);
  int* draft = ImGui::GetStateStorage()->GetIntRef(ImGui::GetID("draft"), target);
  ImGui::SetNextItemWidth(em(9));
  ImGui::InputInt("up to this step##target", draft, 1000, 10000);
  if (ImGui::IsItemDeactivatedAfterEdit()) {
    workspace.setContinuationTarget(std::max(*draft, 1));
  } else if (!ImGui::IsItemActive()) {
    *draft = target;
  }
}

void drawMainButtons(Workspace& workspace) {
  if (!workspace.busy()) {
    if (drawPrimaryButton(workspace.buildButton(), -1)) workspace.build();
    drawContinuing(workspace);
    return;
  }
  if (workspace.stopButton().enabled && drawPrimaryButton(workspace.stopButton(), -1)) workspace.stopTraining();
  if (drawButton(workspace.cancelButton(), -1)) workspace.cancel();
}

}  // namespace

void drawStagesPanel(Workspace& workspace, const PanelContext& context) {
  if (workspace.loading()) drawSpinner(workspace.taskText());
  if (!workspace.project()) {
    drawBeginning(workspace, context);
    return;
  }
  drawInputs(*workspace.project());
  ImGui::Dummy({0, em(0.3F)});
  drawMainButtons(workspace);
  if (workspace.colmapMissing() && workspace.project()->externalDataset.empty()) drawWarning(kNoColmap);
  for (const StageRow& row : workspace.stages()) drawStage(workspace, row);
}

}  // namespace quor::ui
