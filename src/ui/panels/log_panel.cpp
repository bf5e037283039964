#include "ui/panels/log_panel.h"

#include <imgui.h>
#include <imgui_stdlib.h>

#include <array>

#include "ui/panels/widgets.h"

namespace quor::ui {

namespace {

struct Level {
  LogLevel level;
  const char* name;
  ImVec4 colour;  // without alpha: that of other text
};
const std::array kLevels = {Level{LogLevel::Information, "Messages", {0, 0, 0, 0}},
                            Level{LogLevel::Warning, "Warnings", {0.95F, 0.70F, 0.25F, 1}},
                            Level{LogLevel::Error, "Errors", {1.0F, 0.42F, 0.38F, 1}}};

void drawFilter(LogView& view) {
  for (const Level& level : kLevels) {
    bool shown = view.shows(level.level);
    const std::string label = level.name + (" (" + std::to_string(view.count(level.level)) + ")###") + level.name;
    if (ImGui::Checkbox(label.c_str(), &shown)) view.show(level.level, shown);
    ImGui::SameLine();
  }
  std::string search = view.search();
  ImGui::SetNextItemWidth(em(12));
  if (ImGui::InputTextWithHint("##search", "Filter", &search)) view.setSearch(search);
  ImGui::SameLine();
  if (drawButton({"Copy", "Puts all lines shown on the clipboard.", !view.lines().empty()})) {
    ImGui::SetClipboardText(view.copyText().c_str());
  }
  ImGui::SameLine();
  if (drawButton({"Clear", "Empties this view. The log file keeps everything.", !view.lines().empty()})) view.clear();
}

void drawLine(const LogView::Line& line) {
  const ImVec4& colour = kLevels[static_cast<size_t>(line.level)].colour;
  if (colour.w > 0) ImGui::PushStyleColor(ImGuiCol_Text, colour);
  ImGui::TextUnformatted(line.text.data(), line.text.data() + line.text.size());
  if (colour.w > 0) ImGui::PopStyleColor();
  ImGui::PushID(static_cast<int>(line.sequence));
  if (ImGui::BeginPopupContextItem("line")) {
    if (ImGui::MenuItem("Copy this line")) ImGui::SetClipboardText(line.text.c_str());
    ImGui::EndPopup();
  }
  ImGui::PopID();
}

}  // namespace

void drawLogPanel(LogView& view, const PanelContext&) {
  view.update();
  drawFilter(view);
  ImGui::BeginChild("lines", {0, 0}, true, ImGuiWindowFlags_HorizontalScrollbar);
  if (view.lines().empty()) drawFaint(view.emptyText());
  const bool atEnd = ImGui::GetScrollY() >= ImGui::GetScrollMaxY();
  ImGuiListClipper clipper;
  clipper.Begin(static_cast<int>(view.lines().size()));
  while (clipper.Step()) {
    for (int i = clipper.DisplayStart; i < clipper.DisplayEnd; ++i) drawLine(view.lines()[static_cast<size_t>(i)]);
  }
  if (atEnd) ImGui::SetScrollHereY(1);
  ImGui::EndChild();
}

}  // namespace quor::ui
