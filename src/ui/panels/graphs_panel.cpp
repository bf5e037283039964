#include "ui/panels/graphs_panel.h"

#include <imgui.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <optional>

#include "ui/models/number_text.h"
#include "ui/panels/widgets.h"

namespace quor::ui {

namespace {

constexpr std::array kCurves = {Curve::Loss, Curve::Splats, Curve::Milliseconds};
constexpr std::array<ImU32, kCurveCount> kColours = {IM_COL32(255, 170, 80, 255), IM_COL32(110, 190, 255, 255),
                                                     IM_COL32(150, 220, 130, 255)};

// Where values lie in a graph's rectangle.
struct Plot {
  ImVec2 low, high;  // corners on the screen: top left, bottom right
  double firstStep, lastStep;
  TrainingHistory::Range range;

  float x(double step) const {
    const double span = std::max(lastStep - firstStep, 1.0);
    return low.x + static_cast<float>((step - firstStep) / span) * (high.x - low.x);
  }
  float y(float value) const { return high.y - (value - range.low) / (range.high - range.low) * (high.y - low.y); }
  double stepAt(float x) const { return firstStep + (x - low.x) / (high.x - low.x) * (lastStep - firstStep); }
};

void drawLine(const std::vector<TrainingHistory::Point>& points, Curve curve, const Plot& plot, ImDrawList& list) {
  std::vector<ImVec2> line;
  const auto flush = [&] {
    const ImU32 colour = kColours[static_cast<size_t>(curve)];
    if (line.size() == 1) list.AddCircleFilled(line.front(), em(0.15F), colour);
    list.AddPolyline(line.data(), static_cast<int>(line.size()), colour, 0, std::max(em(0.09F), 1.0F));
    line.clear();
  };
  for (const TrainingHistory::Point& point : points) {
    const float value = point.value(curve);
    if (std::isfinite(value)) {
      line.push_back({plot.x(point.step), plot.y(value)});
    } else {
      flush();
    }
  }
  flush();
}

void drawMark(const TrainingHistory::Point& point, Curve curve, const Plot& plot, ImDrawList& list) {
  const float x = plot.x(point.step);
  list.AddLine({x, plot.low.y}, {x, plot.high.y}, ImGui::GetColorU32(ImGuiCol_TextDisabled));
  const float value = point.value(curve);
  if (std::isfinite(value)) list.AddCircleFilled({x, plot.y(value)}, em(0.2F), kColours[static_cast<size_t>(curve)]);
}

// Values at the lower and upper border.
void drawScale(Curve curve, const Plot& plot, ImDrawList& list) {
  const ImU32 faint = ImGui::GetColorU32(ImGuiCol_TextDisabled);
  const float gap = em(0.2F);
  list.AddText({plot.low.x + gap, plot.low.y}, faint, curveText(curve, plot.range.high).c_str());
  list.AddText({plot.low.x + gap, plot.high.y - em(1)}, faint, curveText(curve, plot.range.low).c_str());
  const std::string last = "step " + withThousands(static_cast<uint64_t>(plot.lastStep));
  const float width = ImGui::CalcTextSize(last.c_str()).x;
  list.AddText({plot.high.x - width - gap, plot.high.y - em(1)}, faint, last.c_str());
}

// Returns the point under the mouse.
const TrainingHistory::Point* drawGraph(const TrainingHistory& history, Curve curve, ImVec2 size,
                                        const TrainingHistory::Point* marked) {
  ImGui::TextUnformatted(curveName(curve));
  ImGui::SameLine();
  const TrainingHistory::Point& last = history.points().back();
  const TrainingHistory::Point& told = marked != nullptr ? *marked : last;
  ImGui::TextDisabled("%s", curveText(curve, told.value(curve)).c_str());
  ImGui::InvisibleButton(curveName(curve), size);
  const bool hovered = ImGui::IsItemHovered();
  const std::optional<TrainingHistory::Range> range = history.range(curve);
  const Plot plot{ImGui::GetItemRectMin(), ImGui::GetItemRectMax(), static_cast<double>(history.firstStep()),
                  static_cast<double>(history.lastStep()), range.value_or(TrainingHistory::Range{})};
  ImDrawList& list = *ImGui::GetWindowDrawList();
  list.AddRectFilled(plot.low, plot.high, ImGui::GetColorU32(ImGuiCol_FrameBg));
  list.PushClipRect(plot.low, plot.high, true);
  if (range) drawLine(history.points(), curve, plot, list);
  if (range) drawScale(curve, plot, list);
  if (marked != nullptr) drawMark(*marked, curve, plot, list);
  list.PopClipRect();
  return hovered ? history.at(plot.stepAt(ImGui::GetIO().MousePos.x)) : nullptr;
}

}  // namespace

void drawGraphsPanel(const TrainingHistory& history, const PanelContext&) {
  if (history.points().empty())
    return drawFaint("Loss, number of splats and time per step are shown here while a scene trains.");
  // One above the other, or side by side where there is more width than height.
  const ImVec2 room = ImGui::GetContentRegionAvail();
  const ImVec2 gap = ImGui::GetStyle().ItemSpacing;
  const float title = ImGui::GetTextLineHeightWithSpacing();
  const bool sideBySide = room.x > 1.5F * room.y;
  const float rows = sideBySide ? 1 : kCurveCount, columns = sideBySide ? kCurveCount : 1;
  const ImVec2 size = {std::max((room.x - (columns - 1) * gap.x) / columns, em(4)),
                       std::max((room.y - (rows - 1) * gap.y) / rows - title, em(3))};
  // All graphs mark the step that is pointed at in one of them; the one below is known from the last frame.
  ImGuiStorage& storage = *ImGui::GetStateStorage();
  const ImGuiID id = ImGui::GetID("marked step");
  const int step = storage.GetInt(id, -1);
  const TrainingHistory::Point* marked = step < 0 ? nullptr : history.at(step);
  const TrainingHistory::Point* pointedAt = nullptr;
  for (const Curve curve : kCurves) {
    if (sideBySide && curve != kCurves.front()) ImGui::SameLine();
    ImGui::BeginGroup();
    const TrainingHistory::Point* here = drawGraph(history, curve, size, marked);
    ImGui::EndGroup();
    if (here != nullptr) pointedAt = here;
  }
  storage.SetInt(id, pointedAt == nullptr ? -1 : pointedAt->step);
  if (pointedAt == nullptr) return;
  ImGui::BeginTooltip();
  ImGui::Text("Step %s", withThousands(static_cast<uint64_t>(pointedAt->step)).c_str());
  for (const Curve curve : kCurves) {
    ImGui::Text("%s: %s", curveName(curve), curveText(curve, pointedAt->value(curve)).c_str());
  }
  ImGui::EndTooltip();
}

}  // namespace quor::ui
