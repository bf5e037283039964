#include "ui/panels/viewport_panel.h"

#include <imgui.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "base/text/text.h"
#include "ui/vulkan/textures.h"

namespace quor::ui {
namespace {

constexpr double kTurnPerHeight = 3.0;  // radians that a drag over the viewport's height turns by
constexpr double kFlyPerSecond = 0.7;   // of the distance to the point that is orbited
constexpr double kLookStep = 0.02;
constexpr ImU32 kCameraColour = IM_COL32(255, 170, 60, 200), kNearestColour = IM_COL32(255, 255, 255, 255),
                kWeakColour = IM_COL32(250, 230, 60, 255), kJumpColour = IM_COL32(255, 60, 60, 255);

ImTextureID textureOf(TextureId id) {
  return reinterpret_cast<ImTextureID>(static_cast<uintptr_t>(id));
}

void tip(const char* text) {
  if (ImGui::IsItemHovered(ImGuiHoveredFlags_AllowWhenDisabled)) ImGui::SetTooltip("%s", text);
}

std::vector<uint8_t> withAlpha(const Image& image) {
  std::vector<uint8_t> rgba(image.rgb.size() / 3 * 4, 255);
  for (size_t i = 0; i < image.rgb.size() / 3; ++i) {
    for (size_t c = 0; c < 3; ++c) rgba[4 * i + c] = image.rgb[3 * i + c];
  }
  return rgba;
}

// The up axes to choose from.
struct UpChoice {
  const char* label;
  Vec3 up;
};
constexpr UpChoice kUpChoices[] = {{"-Y up", {0, -1, 0}}, {"+Y up", {0, 1, 0}}, {"+Z up", {0, 0, 1}},
                                   {"-Z up", {0, 0, -1}}, {"+X up", {1, 0, 0}}, {"-X up", {-1, 0, 0}}};

}  // namespace

void ViewportPanel::takePictures() {
  if (std::optional<RenderedPicture> picture = renderer_.take()) {
    if (picture_ == 0) {
      picture_ = textures_.create(picture->width, picture->height, picture->rgba);
    } else {
      textures_.replace(picture_, picture->width, picture->height, picture->rgba);
    }
    picture->rgba = {};
    shown_ = std::move(picture);
  }
  if (viewport_.photographVersion() == photographVersion_) return;
  photographVersion_ = viewport_.photographVersion();
  textures_.destroy(photograph_);
  photograph_ = 0;
  if (const Image* image = viewport_.photograph()) {
    photograph_ = textures_.create(image->width, image->height, withAlpha(*image));
  }
}

void ViewportPanel::draw(const std::string& status, const std::string& hint) {
  takePictures();
  drawToolbar();
  if (viewport_.photo()) drawCompareBar();

  const ImVec2 origin = ImGui::GetCursorScreenPos();
  const ImVec2 room = ImGui::GetContentRegionAvail();
  const float statusHeight = ImGui::GetTextLineHeightWithSpacing();
  const Area area = {origin.x, origin.y, std::max(room.x, 1.0f), std::max(room.y - statusHeight, 1.0f)};
  const ImVec2 pixels = ImGui::GetIO().DisplayFramebufferScale;
  viewport_.draw(static_cast<int>(area.width * pixels.x), static_cast<int>(area.height * pixels.y));

  ImGui::InvisibleButton(
      "scene", {area.width, area.height},
      ImGuiButtonFlags_MouseButtonLeft | ImGuiButtonFlags_MouseButtonRight | ImGuiButtonFlags_MouseButtonMiddle);
  const bool hovered = ImGui::IsItemHovered(), active = ImGui::IsItemActive();
  ImGui::PushClipRect({area.x, area.y}, {area.x + area.width, area.y + area.height}, true);
  drawPicture(area, hint);
  if (viewport_.showCameras && !viewport_.photo()) drawCameras(area, hovered && !active);
  ImGui::PopClipRect();
  handleMouse(area, hovered, active);
  handleKeys(hovered || ImGui::IsWindowFocused());
  drawStatus(status);
}

void ViewportPanel::drawStatus(const std::string& status) {
  std::string line;
  if (shown_ && viewport_.anythingToShow()) {
    line = formatText("%llu splats  ·  %d x %d  ·  %.0f ms  ·  ", static_cast<unsigned long long>(shown_->splats),
                      shown_->width, shown_->height, shown_->milliseconds);
    if (shown_->reduced) line += "smaller, because GPU memory is short  ·  ";
  }
  line += status;
  ImGui::TextDisabled("%s", line.c_str());
}

void ViewportPanel::drawToolbar() {
  const float unit = ImGui::GetFontSize();
  const char* kShownNames[] = {"Splats", "Points", "Splats and points"};
  int shown = static_cast<int>(viewport_.shown);
  ImGui::SetNextItemWidth(9 * unit);
  if (ImGui::Combo("##shown", &shown, kShownNames, IM_ARRAYSIZE(kShownNames)))
    viewport_.shown = static_cast<Shown>(shown);
  tip("The trained splats, the sparse points that the camera solve has found, or both.");
  ImGui::SameLine();
  ImGui::Checkbox("Cameras", &viewport_.showCameras);
  tip("Where the photographs were taken. Click one to look from there and compare.");
  ImGui::SameLine();
  if (ImGui::Button("Reset view")) viewport_.reset();
  tip("Back to where the view began (R).");
  ImGui::SameLine();
  if (ImGui::Button("View...")) ImGui::OpenPopup("view settings");
  if (ImGui::BeginPopup("view settings")) {
    ImGui::SliderFloat("Splat size", &viewport_.splatScale, 0.02f, 1.0f, "%.2f");
    tip("Below 1 each splat is drawn smaller, which shows what the scene is made of.");
    ImGui::SliderInt("Colour detail (SH degree)", &viewport_.shDegree, 0, 3);
    tip("0 shows each splat in one colour from everywhere; 3 with all its reflections.");
    ImGui::ColorEdit3("Background", viewport_.background.data());
    ImGui::TextUnformatted("Up axis");
    if (const CameraSet* cameras = viewport_.cameras(); cameras != nullptr && ImGui::Button("From the cameras")) {
      viewport_.move().setUp(cameras->geometry.up);
    }
    for (const UpChoice& choice : kUpChoices) {
      if (&choice != kUpChoices) ImGui::SameLine();
      if (ImGui::SmallButton(choice.label)) viewport_.move().setUp(choice.up);
    }
    ImGui::EndPopup();
  }
  ImGui::SameLine();
  ImGui::TextDisabled("(?)");
  tip("Drag: turn around the scene.  Right drag or Shift: slide.  Wheel: nearer, farther.\n"
      "W A S D, Q E: fly.  Arrow keys: look around.  R: reset.");
}

void ViewportPanel::drawCompareBar() {
  const size_t photo = *viewport_.photo();
  const auto& photos = viewport_.cameras()->photos;
  const auto step = [&](const char* label, size_t to, bool possible) {
    ImGui::BeginDisabled(!possible);
    if (ImGui::Button(label)) viewport_.lookFrom(to);
    ImGui::EndDisabled();
    ImGui::SameLine();
  };
  step("<", photo - 1, photo > 0);
  step(">", photo + 1, photo + 1 < photos.size());
  ImGui::AlignTextToFramePadding();
  ImGui::Text("%s", photos[photo].name.c_str());
  int compare = static_cast<int>(viewport_.compare);
  for (const char* label : {"Render", "Side by side", "Wipe"}) {
    ImGui::SameLine();
    ImGui::RadioButton(label, &compare, label[0] == 'R' ? 0 : label[0] == 'S' ? 1 : 2);
  }
  viewport_.compare = static_cast<Compare>(compare);
  ImGui::SameLine();
  if (ImGui::Button("Leave photograph")) viewport_.leavePhoto();
}

void ViewportPanel::drawPicture(const Area& area, const std::string& hint) {
  ImDrawList* list = ImGui::GetWindowDrawList();
  const auto say = [&](const std::string& text) {
    const ImVec2 size = ImGui::CalcTextSize(text.c_str(), nullptr, false, 0.8f * area.width);
    list->AddText(ImGui::GetFont(), ImGui::GetFontSize(),
                  {area.x + (area.width - size.x) / 2, area.y + (area.height - size.y) / 2},
                  ImGui::GetColorU32(ImGuiCol_TextDisabled), text.c_str(), nullptr, 0.8f * area.width);
  };
  const std::string failure = renderer_.failure();
  if (!failure.empty()) return say(failure);
  if (!viewport_.anythingToShow()) {
    if (viewport_.loading()) return say(viewport_.loadingText() + "...");
    return say(viewport_.problem().empty() ? hint : viewport_.problem());
  }
  if (!shown_ || picture_ == 0) return say("Drawing...");
  if (viewport_.photo()) return drawCompared(area);
  list->AddImage(textureOf(picture_), {area.x, area.y}, {area.x + area.width, area.y + area.height});
}

// The photograph left of the line or beside the render, which has its shape.
void ViewportPanel::drawCompared(const Area& area) {
  ImDrawList* list = ImGui::GetWindowDrawList();
  const bool beside = viewport_.compare == Compare::SideBySide;
  const gs::Camera camera = viewport_.camera(static_cast<int>(area.width), static_cast<int>(area.height));
  const float width = static_cast<float>(camera.width), height = static_cast<float>(camera.height);
  const float left = area.x + (area.width - (beside ? 2 * width : width)) / 2;
  const float top = area.y + (area.height - height) / 2;
  const float render = beside ? left + width : left;
  list->AddImage(textureOf(picture_), {render, top}, {render + width, top + height});
  if (viewport_.compare == Compare::Off) return;
  if (photograph_ == 0) {
    list->AddText({left + 8, top + 8}, IM_COL32_WHITE,
                  viewport_.loading() ? "Reading the photograph..." : viewport_.problem().c_str());
    return;
  }
  const float share = beside ? 1 : std::clamp(viewport_.wipe, 0.0f, 1.0f);
  list->AddImage(textureOf(photograph_), {left, top}, {left + share * width, top + height}, {0, 0}, {share, 1});
  if (!beside) list->AddLine({left + share * width, top}, {left + share * width, top + height}, IM_COL32_WHITE, 2);
}

void ViewportPanel::drawCameras(const Area& area, bool hovered) {
  const CameraSet* cameras = viewport_.cameras();
  if (cameras == nullptr) return;
  const gs::Camera view = viewport_.eye().camera(static_cast<int>(area.width), static_cast<int>(area.height));
  const double size = 0.05 * cameras->geometry.extent;
  ImDrawList* list = ImGui::GetWindowDrawList();
  const ImVec2 mouse = ImGui::GetIO().MousePos;
  float nearest = 12 * ImGui::GetIO().DisplayFramebufferScale.x;
  std::optional<size_t> under;
  const auto place = [&](const std::array<double, 2>& at) {
    return ImVec2(area.x + static_cast<float>(at[0]), area.y + static_cast<float>(at[1]));
  };
  const auto lines = [&](const std::array<std::array<double, 2>, 5>& points, ImU32 colour) {
    for (size_t c = 1; c <= 4; ++c) {
      list->AddLine(place(points[0]), place(points[c]), colour);
      list->AddLine(place(points[c]), place(points[c % 4 + 1]), colour);
    }
  };
  for (size_t i = 0; i < cameras->photos.size(); ++i) {
    const auto points = frustumOnScreen(cameras->photos[i].source.camera, size, view);
    if (!points) continue;
    lines(*points, kCameraColour);
    const ImVec2 tip = place((*points)[0]);
    const float distance = std::hypot(tip.x - mouse.x, tip.y - mouse.y);
    if (hovered && distance < nearest) {
      nearest = distance;
      under = i;
    }
  }
  const auto mark = [&](const std::array<size_t, 2>& pair, ImU32 colour) {
    std::array<ImVec2, 2> tips;
    for (size_t i = 0; i < 2; ++i) {
      const auto points = frustumOnScreen(cameras->photos[pair[i]].source.camera, size, view);
      if (!points) return;
      lines(*points, colour);
      tips[i] = place((*points)[0]);
    }
    list->AddLine(tips[0], tips[1], colour, 2);
  };
  if (cameras->weakestLink) mark(*cameras->weakestLink, kWeakColour);
  for (const auto& jump : cameras->jumps) mark(jump, kJumpColour);
  if (!under) return;
  lines(*frustumOnScreen(cameras->photos[*under].source.camera, size, view), kNearestColour);
  ImGui::SetTooltip("%s", cameras->photos[*under].name.c_str());
  if (ImGui::IsMouseReleased(ImGuiMouseButton_Left) && !dragged_) {
    viewport_.lookFrom(*under);
    if (viewport_.compare == Compare::Off) viewport_.compare = Compare::SideBySide;
  }
}

void ViewportPanel::handleMouse(const Area& area, bool hovered, bool active) {
  const ImGuiIO& io = ImGui::GetIO();
  if (ImGui::IsMouseClicked(ImGuiMouseButton_Left)) dragged_ = false;
  if (hovered && io.MouseWheel != 0) viewport_.move().dolly(static_cast<double>(io.MouseWheel));
  if (!active || (io.MouseDelta.x == 0 && io.MouseDelta.y == 0)) return;
  if (viewport_.photo() && viewport_.compare == Compare::Wipe && ImGui::IsMouseDown(ImGuiMouseButton_Left)) {
    const float width =
        static_cast<float>(viewport_.camera(static_cast<int>(area.width), static_cast<int>(area.height)).width);
    viewport_.wipe = std::clamp((io.MousePos.x - area.x - (area.width - width) / 2) / width, 0.0f, 1.0f);
    return;
  }
  if (!dragged_ && !ImGui::IsMouseDragging(ImGuiMouseButton_Left) && !ImGui::IsMouseDragging(ImGuiMouseButton_Right) &&
      !ImGui::IsMouseDragging(ImGuiMouseButton_Middle)) {
    return;  // a click that trembles
  }
  dragged_ = true;
  const double right = io.MouseDelta.x / area.height, down = io.MouseDelta.y / area.height;
  if (ImGui::IsMouseDown(ImGuiMouseButton_Left) && !io.KeyShift) {
    viewport_.move().orbit(-kTurnPerHeight * right, kTurnPerHeight * -down);
  } else {
    viewport_.move().pan(right, down);
  }
}

void ViewportPanel::handleKeys(bool focused) {
  const ImGuiIO& io = ImGui::GetIO();
  if (!focused || io.WantTextInput || io.KeyCtrl || io.KeyAlt || io.KeySuper) return;
  const auto held = [](int key) { return ImGui::IsKeyDown(key) ? 1.0 : 0.0; };
  const Vec3 way = {held('D') - held('A'), held('Q') - held('E'), held('W') - held('S')};
  const auto arrow = [&](ImGuiKey key) { return held(ImGui::GetKeyIndex(key)); };
  const double sideways = arrow(ImGuiKey_LeftArrow) - arrow(ImGuiKey_RightArrow);
  const double upwards = arrow(ImGuiKey_UpArrow) - arrow(ImGuiKey_DownArrow);
  if (way != Vec3{0, 0, 0}) viewport_.move().fly(kFlyPerSecond * io.DeltaTime * way);
  if (sideways != 0 || upwards != 0) viewport_.move().look(kLookStep * sideways, kLookStep * upwards);
  if (ImGui::IsKeyPressed('R', false)) viewport_.reset();
}

}  // namespace quor::ui
