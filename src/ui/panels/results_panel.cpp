#include "ui/panels/results_panel.h"

#include <imgui.h>

#include <algorithm>

#include "base/files/paths.h"
#include "pipeline/pipeline.h"
#include "ui/models/files/file_dialog.h"
#include "ui/models/number_text.h"
#include "ui/panels/widgets.h"

namespace quor::ui {

namespace {

constexpr int kSmallPicture = 512;  // pixels that are read for the list
constexpr int kLargePicture = 4096;

ImTextureID textureOf(const Picture& picture) {
  return reinterpret_cast<ImTextureID>(static_cast<uintptr_t>(picture.texture));
}

void drawExport(Results& results, ExportFormat format, const PanelContext& context) {
  Button button = results.exportButton(format);
  button.enabled = button.enabled && !context.dialogs.open();
  if (!drawButton(button)) return;
  const std::string ending = format == ExportFormat::Ply ? "ply" : "splat";
  context.dialogs.ask({FileDialog::Kind::SaveFile, "Save the scene", {ending}, results.suggestedName(format)},
                      [&results, format](const std::vector<std::filesystem::path>& paths) {
                        if (!paths.empty()) results.exportScene(format, paths.front());
                      });
}

void drawScore(Results& results, size_t index, const PanelContext& context) {
  const ViewScore& score = results.facts()->scores[index];
  const ImVec2 size = {em(9), em(3.4F)};
  ImGui::PushID(static_cast<int>(index));
  const ImVec2 corner = ImGui::GetCursorPos();
  if (ImGui::Selectable("##score", results.selected == index, 0, {0, size.y})) results.selected = index;
  const ImVec2 end = ImGui::GetCursorPos();
  ImGui::SetCursorPos(corner);
  const std::optional<Picture> picture = context.images.picture(score.picture, kSmallPicture);
  if (picture && picture->texture != 0) {
    const float scale =
        std::min(size.x / static_cast<float>(picture->width), size.y / static_cast<float>(picture->height));
    ImGui::Image(textureOf(*picture),
                 {static_cast<float>(picture->width) * scale, static_cast<float>(picture->height) * scale});
  } else {
    ImGui::TextDisabled(picture ? "no picture" : "...");
  }
  ImGui::SetCursorPos({corner.x + size.x + em(0.6F), corner.y});
  drawWrapped(Results::scoreText(score));
  ImGui::SetCursorPos(end);
  ImGui::PopID();
}

void drawScores(Results& results, const PanelContext& context) {
  drawHeading("Pictures kept back from training");
  drawWrapped(results.scoreLine());
  drawFaint("Photograph on the left, scene on the right. Click one to see it in full.");
  ImGuiListClipper clipper;
  clipper.Begin(static_cast<int>(results.facts()->scores.size()), em(3.4F) + ImGui::GetStyle().ItemSpacing.y);
  while (clipper.Step()) {
    for (int i = clipper.DisplayStart; i < clipper.DisplayEnd; ++i) drawScore(results, static_cast<size_t>(i), context);
  }
}

}  // namespace

void drawResultsPanel(Results& results, const PanelContext& context) {
  if (!results.facts()) {
    drawFaint("Open a project or a scene to see what has come of it.");
    return;
  }
  const ProjectFacts& facts = *results.facts();
  for (size_t i = 0; i < facts.summary.size() && i < kStageCount; ++i) {
    drawWrapped(std::string(stageName(static_cast<Stage>(i))) + ": " + facts.summary[i]);
  }
  drawHeading("Scene");
  drawWrapped(results.sceneLine());
  drawExport(results, ExportFormat::Ply, context);
  ImGui::SameLine();
  drawExport(results, ExportFormat::Splat, context);
  ImGui::SameLine();
  if (drawButton(results.folderButton())) results.openFolder();
  if (results.exporting()) drawSpinner(results.exportText());
  if (ImGui::TreeNode("Files")) {
    for (const FileFacts& file : facts.files) {
      drawWrapped(toUtf8(file.path.filename()) + ", " + sizeText(file.bytes));
      drawTooltip(toUtf8(file.path));
    }
    ImGui::TreePop();
  }
  if (!facts.scores.empty()) drawScores(results, context);
}

void drawComparisonWindow(Results& results, const PanelContext& context) {
  if (!results.selected || !results.facts()) return;
  const std::vector<ViewScore>& scores = results.facts()->scores;
  if (*results.selected >= scores.size()) return;
  const ViewScore& score = scores[*results.selected];
  bool open = true;
  ImGui::SetNextWindowSize({em(60), em(26)}, ImGuiCond_FirstUseEver);
  if (ImGui::Begin("Photograph and scene", &open, ImGuiWindowFlags_NoCollapse)) {
    ImGui::BeginDisabled(*results.selected == 0);
    const bool previous = ImGui::Button("Previous");
    ImGui::EndDisabled();
    ImGui::SameLine();
    ImGui::BeginDisabled(*results.selected + 1 >= scores.size());
    const bool next = ImGui::Button("Next");
    ImGui::EndDisabled();
    ImGui::SameLine();
    drawWrapped(Results::scoreText(score));
    const std::optional<Picture> picture = context.images.picture(score.picture, kLargePicture);
    if (!picture) {
      drawSpinner("Reading the picture");
    } else if (picture->texture == 0) {
      drawFaint("The picture is not there any more.");
    } else {
      const ImVec2 room = ImGui::GetContentRegionAvail();
      const auto width = static_cast<float>(picture->width);
      const auto height = static_cast<float>(picture->height);
      const float scale = std::max(std::min(room.x / width, room.y / height), 0.01F);
      ImGui::Image(textureOf(*picture), {width * scale, height * scale});
    }
    if (previous) --*results.selected;
    if (next) ++*results.selected;
  }
  ImGui::End();
  if (!open) results.selected.reset();
}

}  // namespace quor::ui
