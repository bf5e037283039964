#include "ui/panels/widgets.h"

#include <imgui.h>
#include <imgui_stdlib.h>

#include <algorithm>
#include <cmath>

namespace quor::ui {

namespace {

constexpr float kTooltipWidth = 28;
constexpr float kFieldWidth = 14;
constexpr float kRoomForLabels = 28;  // beside the fields
const ImVec4 kWarningColour = {0.95F, 0.70F, 0.25F, 1};

// A number that is typed counts when its field is left: until then it may be outside of its limits. The draft lies with
// the window's other state, under a name of its own: to ask for the field's would disturb its group.
bool drawNumber(const char* id, int value, int step, int& entered) {
  int* draft = ImGui::GetStateStorage()->GetIntRef(ImGui::GetID("draft"), value);
  ImGui::InputInt(id, draft, step, step * 10);
  if (ImGui::IsItemDeactivatedAfterEdit()) {
    entered = *draft;
    return true;
  }
  if (!ImGui::IsItemActive()) *draft = value;
  return false;
}

// Of the buttons beside a number.
int stepOf(int most) {
  return most > 100000 ? 1000 : most > 4000 ? 100 : most > 200 ? 10 : 1;
}

// As drawNumber(); the storage keeps 64 bits only as a pointer.
bool drawCount(const char* id, uint64_t value, uint64_t& entered) {
  constexpr uint64_t kStep = 50000, kBigStep = 10 * kStep;
  void** stored = ImGui::GetStateStorage()->GetVoidPtrRef(ImGui::GetID("draft"), reinterpret_cast<void*>(value));
  auto draft = reinterpret_cast<uint64_t>(*stored);
  ImGui::InputScalar(id, ImGuiDataType_U64, &draft, &kStep, &kBigStep);
  const bool left = ImGui::IsItemDeactivatedAfterEdit();
  if (left) entered = draft;
  *stored = reinterpret_cast<void*>(left || ImGui::IsItemActive() ? draft : value);
  return left;
}

struct Draw {
  Project& project;

  bool operator()(const WholeSetting& s) const {
    int value = s.of(project);
    const bool changed = drawNumber("##value", value, stepOf(s.most), value);
    if (!changed) return false;
    s.of(project) = std::clamp(value, s.least, s.most);
    return true;
  }
  bool operator()(const CountSetting& s) const {
    uint64_t value = s.of(project);
    if (!drawCount("##value", value, value)) return false;
    s.of(project) = std::min(value, s.most);
    return true;
  }
  bool operator()(const RealSetting& s) const {
    double value = s.get(project);
    const bool changed = ImGui::SliderScalar("##value", ImGuiDataType_Double, &value, &s.least, &s.most, s.format,
                                             ImGuiSliderFlags_AlwaysClamp);
    if (changed) s.set(project, value);
    return changed;
  }
  bool operator()(const SwitchSetting& s) const { return ImGui::Checkbox("##value", &s.of(project)); }
  bool operator()(const ChoiceSetting& s) const {
    int value = s.get(project);
    const auto label = [](void* data, int index, const char** text) {
      *text = (*static_cast<const std::vector<ChoiceWord>*>(data))[static_cast<size_t>(index)].label;
      return true;
    };
    auto* words = const_cast<std::vector<ChoiceWord>*>(&s.words);  // ImGui passes it on as void*
    const bool changed = ImGui::Combo("##value", &value, label, words, static_cast<int>(s.words.size()));
    if (changed) s.set(project, value);
    return changed;
  }
  bool operator()(const TextSetting& s) const {
    std::string& text = s.of(project);
    bool changed = ImGui::InputText("##value", &text);
    if (s.suggestions.empty()) return changed;
    ImGui::SameLine(0, 0);
    if (ImGui::BeginCombo("##suggestions", "", ImGuiComboFlags_NoPreview)) {
      for (const char* word : s.suggestions) {
        if (!ImGui::Selectable(word, text == word)) continue;
        text = word;
        changed = true;
      }
      ImGui::EndCombo();
    }
    return changed;
  }
  bool operator()(const ColourSetting& s) const {
    return ImGui::ColorEdit3("##value", s.of(project).data(), ImGuiColorEditFlags_NoInputs);
  }
};

void drawZero(const Setting& setting, Project& project) {
  const auto* number = std::get_if<WholeSetting>(&setting.value);
  const auto* count = std::get_if<CountSetting>(&setting.value);
  const char* zero = number ? number->zero : count ? count->zero : nullptr;
  if (!zero || (number ? number->of(project) != 0 : count->of(project) != 0)) return;
  drawFaint(std::string("0: ") + zero);
}

}  // namespace

float em(float count) {
  return ImGui::GetFontSize() * count;
}

void drawWrapped(const std::string& text) {
  ImGui::PushTextWrapPos(0);
  ImGui::TextUnformatted(text.c_str(), text.c_str() + text.size());
  ImGui::PopTextWrapPos();
}

void drawFaint(const std::string& text) {
  ImGui::PushStyleColor(ImGuiCol_Text, ImGui::GetStyleColorVec4(ImGuiCol_TextDisabled));
  drawWrapped(text);
  ImGui::PopStyleColor();
}

void drawWarning(const std::string& text) {
  ImGui::PushStyleColor(ImGuiCol_Text, kWarningColour);
  drawWrapped(text);
  ImGui::PopStyleColor();
}

void drawHeading(const char* text) {
  ImGui::Dummy({0, em(0.3F)});
  ImGui::TextUnformatted(text);
  ImGui::Separator();
}

void drawTooltip(const std::string& text) {
  if (text.empty() || !ImGui::IsItemHovered(ImGuiHoveredFlags_AllowWhenDisabled)) return;
  ImGui::BeginTooltip();
  ImGui::PushTextWrapPos(em(kTooltipWidth));
  ImGui::TextUnformatted(text.c_str());
  ImGui::PopTextWrapPos();
  ImGui::EndTooltip();
}

void drawSpinner(const std::string& text) {
  const float radius = em(0.4F);
  const ImVec2 corner = ImGui::GetCursorScreenPos();
  const ImVec2 centre = {corner.x + radius, corner.y + em(0.5F)};
  const auto turn = static_cast<float>(std::fmod(ImGui::GetTime() * 6, 6.283185307));
  ImDrawList* list = ImGui::GetWindowDrawList();
  list->PathArcTo(centre, radius, turn, turn + 4.5F, 20);
  list->PathStroke(ImGui::GetColorU32(ImGuiCol_Text), 0, em(0.12F));
  ImGui::Dummy({2 * radius, em(1)});
  ImGui::SameLine();
  drawWrapped(text + "...");
}

bool drawButton(const Button& button, float width) {
  ImGui::BeginDisabled(!button.enabled);
  const bool pressed = ImGui::Button(button.label.c_str(), {width, 0});
  ImGui::EndDisabled();
  drawTooltip(button.hint);
  return pressed;
}

bool drawPrimaryButton(const Button& button, float width) {
  ImGui::PushStyleVar(ImGuiStyleVar_FramePadding, {em(1), em(0.5F)});
  ImGui::PushStyleColor(ImGuiCol_Button, ImGui::GetStyleColorVec4(ImGuiCol_ButtonActive));
  const bool pressed = drawButton(button, width);
  ImGui::PopStyleColor();
  ImGui::PopStyleVar();
  return pressed;
}

bool drawSetting(const Setting& setting, Project& project) {
  const std::string meaning = settingText(setting, setting.meaning);
  const float room = ImGui::GetContentRegionAvail().x;
  const bool beside = std::holds_alternative<SwitchSetting>(setting.value) || room > em(kRoomForLabels);
  ImGui::PushID(setting.key);
  if (!beside) {
    drawWrapped(setting.label);
    drawTooltip(meaning);
  }
  // The buttons of some fields stand outside of their width.
  ImGui::PushItemWidth(std::min(em(kFieldWidth), room - em(2)));
  ImGui::BeginGroup();
  const bool changed = std::visit(Draw{project}, setting.value);
  ImGui::EndGroup();
  ImGui::PopItemWidth();
  drawTooltip(meaning);
  if (beside) {
    ImGui::SameLine();
    ImGui::TextUnformatted(setting.label);
    drawTooltip(meaning);
  }
  drawZero(setting, project);
  ImGui::PopID();
  return changed;
}

bool drawSettings(SettingGroup group, Project& project) {
  if (!groupApplies(group, project) || !ImGui::TreeNode(groupTitle(group))) return false;
  bool changed = false;
  for (const Setting& setting : settingsTable()) {
    if (setting.group == group && isShown(setting, project)) changed = drawSetting(setting, project) || changed;
  }
  ImGui::TreePop();
  return changed;
}

}  // namespace quor::ui
