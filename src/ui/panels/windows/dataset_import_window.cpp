#include "ui/panels/windows/dataset_import_window.h"

#include <imgui.h>

#include <vector>

#include "base/files/paths.h"
#include "ui/models/files/file_dialog.h"
#include "ui/panels/widgets.h"

namespace quor::ui {

namespace {

void drawChoice(const char* title, std::filesystem::path& chosen, const PanelContext& context) {
  ImGui::PushID(title);
  ImGui::BeginDisabled(context.dialogs.open());
  if (ImGui::Button("Choose...")) {
    context.dialogs.ask({FileDialog::Kind::OpenFolder, title},
                        [&chosen](const std::vector<std::filesystem::path>& paths) {
                          if (!paths.empty()) chosen = paths.front();
                        });
  }
  ImGui::EndDisabled();
  ImGui::PopID();
}

}  // namespace

void drawDatasetImportWindow(ProjectSession& session, const PanelContext& context) {
  DatasetImport& form = session.datasetImport();
  if (!form.visible) return;
  ImGui::SetNextWindowSize({em(34), 0}, ImGuiCond_Appearing);
  ImGui::SetNextWindowPos(ImGui::GetMainViewport()->GetCenter(), ImGuiCond_Appearing, {0.5F, 0.5F});
  if (ImGui::Begin("Import a COLMAP dataset", &form.visible, ImGuiWindowFlags_NoCollapse)) {
    if (!form.problem.empty()) drawWarning(form.problem);
    drawHeading("Dataset");
    drawWrapped(form.dataset.empty() ? "The folder that holds images/ and sparse/." : toUtf8(form.dataset));
    drawChoice("COLMAP dataset: the folder that holds images/ and sparse/", form.dataset, context);
    drawHeading("The project's folder is made in");
    drawWrapped(form.place());
    drawChoice("Folder in which the project's folder is made", form.destination, context);
    if (!form.destination.empty()) {
      ImGui::SameLine();
      if (ImGui::Button("Beside the dataset")) form.destination.clear();
    }
    ImGui::Separator();
    if (drawPrimaryButton(form.importButton())) session.importDataset(form.dataset, form.destination);
  }
  ImGui::End();
}

}  // namespace quor::ui
