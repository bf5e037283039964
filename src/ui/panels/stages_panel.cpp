#include "ui/panels/stages_panel.h"

#include <imgui.h>

#include "base/files/paths.h"
#include "ui/panels/widgets.h"

namespace quor::ui {

namespace {

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

// Whether the solved cameras can be trained on, in one line; the rest when it is pointed at.
void drawCameraReport(const std::optional<ProjectFacts>& facts) {
  if (!facts || !facts->cameraReport) return;
  const CameraReport& report = *facts->cameraReport;
  report.trust == CameraTrust::Sound ? drawFaint(report.summary) : drawWarning(report.summary);
  for (const std::string& sentence : report.advice) drawFaint(sentence);
  if (report.notPlaced.empty()) return;
  if (!ImGui::TreeNode("not placed", "%zu images were not placed", report.notPlaced.size())) return;
  for (const CameraReport::NotPlaced& missing : report.notPlaced) drawFaint(missing.image + ": " + missing.reason);
  ImGui::TreePop();
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
  const bool train = row.stage == Stage::Train;
  if (row.stage == Stage::Sparse && row.state != StageState::Running) drawCameraReport(workspace.results().facts());
  if (train || workspace.project()->externalDataset.empty()) {
    if (drawButton(row.runFrom)) workspace.run().start(row.stage, Stage::Train);
    if (!train) ImGui::SameLine();
    if (!train && drawButton(row.runOnly)) workspace.run().start(row.stage, row.stage);
  }
  ImGui::PopID();
}

void drawContinuing(Workspace& workspace) {
  if (!workspace.run().hasCheckpoint() || workspace.busy()) return;
  const int target = workspace.run().continuationTarget();
  if (drawButton(workspace.run().continueButton(target), -1)) workspace.run().continueTraining(target);
  int* draft = ImGui::GetStateStorage()->GetIntRef(ImGui::GetID("draft"), target);
  ImGui::SetNextItemWidth(em(9));
  ImGui::InputInt("up to this step##target", draft, 1000, 10000);
  if (ImGui::IsItemDeactivatedAfterEdit()) {
    workspace.run().setContinuationTarget(std::max(*draft, 1));
  } else if (!ImGui::IsItemActive()) {
    *draft = target;
  }
}

void drawMainButtons(Workspace& workspace) {
  if (!workspace.busy()) {
    if (drawPrimaryButton(workspace.run().buildButton(), -1)) workspace.run().build();
    drawContinuing(workspace);
    return;
  }
  if (workspace.run().stopButton().enabled && drawPrimaryButton(workspace.run().stopButton(), -1))
    workspace.run().stop();
  if (drawButton(workspace.run().cancelButton(), -1)) workspace.run().cancel();
}

}  // namespace

void drawStagesPanel(Workspace& workspace) {
  if (!workspace.project()) return;
  drawInputs(*workspace.project());
  ImGui::Dummy({0, em(0.3F)});
  drawMainButtons(workspace);
  if (workspace.run().colmapMissing() && workspace.project()->externalDataset.empty()) drawWarning(kNoColmap);
  for (const StageRow& row : workspace.run().stages()) drawStage(workspace, row);
}

}  // namespace quor::ui
