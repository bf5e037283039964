#include "ui/panels/notices.h"

#include <imgui.h>

#include <algorithm>

#include "base/files/paths.h"
#include "ui/panels/widgets.h"

namespace quor::ui {

namespace {

constexpr size_t kMaxLines = 14;

void drawLines(const Notice& notice) {
  const size_t shown = std::min(notice.lines.size(), kMaxLines);
  for (size_t i = 0; i < shown; ++i) drawWrapped(notice.lines[i]);
  if (shown < notice.lines.size()) drawFaint("and " + std::to_string(notice.lines.size() - shown) + " more");
}

void drawFolder(const Notice& notice, const PanelContext& context) {
  if (notice.folder.empty() || !context.openFolder) return;
  ImGui::SameLine();
  if (ImGui::Button("Open folder")) context.openFolder(notice.folder);
  drawTooltip(toUtf8(notice.folder));
}

// True when it was dismissed.
bool drawError(const Notice& notice, const PanelContext& context) {
  const std::string title = notice.title + "###error";
  const ImGuiViewport* viewport = ImGui::GetMainViewport();
  const float width = std::min(em(32), viewport->WorkSize.x * 0.9F);
  if (!ImGui::IsPopupOpen(title.c_str())) ImGui::OpenPopup(title.c_str());
  ImGui::SetNextWindowPos(viewport->GetWorkCenter(), ImGuiCond_Always, {0.5F, 0.5F});
  ImGui::SetNextWindowSizeConstraints({width, 0}, {width, viewport->WorkSize.y});
  if (!ImGui::BeginPopupModal(title.c_str(), nullptr, ImGuiWindowFlags_AlwaysAutoResize)) return false;
  drawLines(notice);
  ImGui::Dummy({0, em(0.3F)});
  const bool dismissed = ImGui::Button("OK", {em(7), 0}) ||
                         ImGui::IsKeyPressed(ImGui::GetKeyIndex(ImGuiKey_Escape), false) ||
                         ImGui::IsKeyPressed(ImGui::GetKeyIndex(ImGuiKey_Enter), false);
  if (ImGui::IsWindowAppearing()) ImGui::SetItemDefaultFocus();
  drawFolder(notice, context);
  if (dismissed) ImGui::CloseCurrentPopup();
  ImGui::EndPopup();
  return dismissed;
}

bool drawNews(const Notice& notice, size_t index, float& bottom, const PanelContext& context) {
  const ImGuiViewport* viewport = ImGui::GetMainViewport();
  const float width = std::min(em(26), viewport->WorkSize.x * 0.9F);
  const float right = viewport->WorkPos.x + viewport->WorkSize.x - em(0.6F);
  ImGui::SetNextWindowPos({right, bottom}, ImGuiCond_Always, {1, 1});
  ImGui::SetNextWindowSizeConstraints({width, 0}, {width, viewport->WorkSize.y});
  bool open = true;
  const std::string title = notice.title + "###news" + std::to_string(index);
  constexpr ImGuiWindowFlags kFlags = ImGuiWindowFlags_AlwaysAutoResize | ImGuiWindowFlags_NoCollapse |
                                      ImGuiWindowFlags_NoMove | ImGuiWindowFlags_NoSavedSettings |
                                      ImGuiWindowFlags_NoFocusOnAppearing;
  ImGui::Begin(title.c_str(), &open, kFlags);
  drawLines(notice);
  if (ImGui::Button("OK", {em(6), 0})) open = false;
  drawFolder(notice, context);
  bottom -= ImGui::GetWindowHeight() + em(0.4F);
  ImGui::End();
  return !open;
}

}  // namespace

void drawNotices(std::vector<Notice>& notices, const PanelContext& context) {
  const auto error = std::ranges::find_if(notices, &Notice::isError);
  if (error != notices.end() && drawError(*error, context)) notices.erase(error);

  const ImGuiViewport* viewport = ImGui::GetMainViewport();
  float bottom = viewport->WorkPos.y + viewport->WorkSize.y - em(0.6F);
  size_t dismissed = notices.size();
  size_t shown = 0;
  for (size_t i = 0; i < notices.size(); ++i) {
    if (!notices[i].isError && drawNews(notices[i], shown++, bottom, context)) dismissed = i;
  }
  if (dismissed < notices.size()) notices.erase(notices.begin() + static_cast<std::ptrdiff_t>(dismissed));
}

}  // namespace quor::ui
