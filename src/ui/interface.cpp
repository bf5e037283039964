#include "ui/interface.h"

#if __has_include(<backends/imgui_impl_glfw.h>)
#include <backends/imgui_impl_glfw.h>
#else  // vcpkg has no folder for it
#include <imgui_impl_glfw.h>
#endif
#include <imgui.h>

#include <algorithm>
#include <cmath>
#include <cstddef>

#include "ui/fonts.h"

namespace quor::ui {
namespace {

void setLook(float scale) {
  ImGui::StyleColorsDark();
  ImGuiStyle style;
  style.WindowRounding = style.ChildRounding = style.PopupRounding = 5;
  style.FrameRounding = style.GrabRounding = style.TabRounding = 4;
  style.FramePadding = {8, 5};
  style.ItemSpacing = {8, 7};
  style.WindowPadding = {10, 10};
  style.ScrollbarSize = 12;
  style.WindowBorderSize = 0;
  ImGui::StyleColorsDark(&style);
  ImVec4* colours = style.Colors;
  colours[ImGuiCol_WindowBg] = {0.11f, 0.11f, 0.12f, 1};
  colours[ImGuiCol_ChildBg] = {0.13f, 0.13f, 0.14f, 1};
  colours[ImGuiCol_PopupBg] = {0.15f, 0.15f, 0.16f, 1};
  colours[ImGuiCol_MenuBarBg] = {0.14f, 0.14f, 0.15f, 1};
  colours[ImGuiCol_FrameBg] = {0.20f, 0.20f, 0.22f, 1};
  colours[ImGuiCol_Button] = {0.25f, 0.27f, 0.31f, 1};
  colours[ImGuiCol_ButtonHovered] = {0.33f, 0.37f, 0.44f, 1};
  colours[ImGuiCol_ButtonActive] = {0.80f, 0.50f, 0.16f, 1};
  colours[ImGuiCol_CheckMark] = colours[ImGuiCol_SliderGrab] =
      colours[ImGuiCol_PlotHistogram] = {0.95f, 0.62f, 0.22f, 1};
  colours[ImGuiCol_Header] = {0.25f, 0.27f, 0.31f, 1};
  colours[ImGuiCol_HeaderHovered] = colours[ImGuiCol_TabHovered] = {0.33f, 0.37f, 0.44f, 1};
  colours[ImGuiCol_HeaderActive] = {0.38f, 0.42f, 0.50f, 1};
  colours[ImGuiCol_FrameBgHovered] = {0.26f, 0.27f, 0.30f, 1};
  colours[ImGuiCol_FrameBgActive] = {0.30f, 0.32f, 0.36f, 1};
  colours[ImGuiCol_SliderGrabActive] = {1.0f, 0.72f, 0.36f, 1};
  colours[ImGuiCol_TitleBg] = {0.14f, 0.14f, 0.15f, 1};
  colours[ImGuiCol_TitleBgActive] = {0.20f, 0.21f, 0.24f, 1};
  colours[ImGuiCol_NavHighlight] = {0.95f, 0.62f, 0.22f, 1};
  colours[ImGuiCol_ModalWindowDimBg] = {0, 0, 0, 0.5f};
  colours[ImGuiCol_ResizeGrip] = {0.25f, 0.27f, 0.31f, 1};
  colours[ImGuiCol_Tab] = {0.17f, 0.18f, 0.20f, 1};
  colours[ImGuiCol_TabActive] = {0.28f, 0.31f, 0.37f, 1};
  style.ScaleAllSizes(scale);
  ImGui::GetStyle() = style;
}

}  // namespace

Interface::Interface(Window& window, Textures& textures) : textures_(textures) {
  IMGUI_CHECKVERSION();
  ImGui::CreateContext();
  ImGuiIO& io = ImGui::GetIO();
  io.IniFilename = nullptr;  // the window keeps its own state
  io.BackendRendererName = "ombrelux";
  io.BackendFlags |= ImGuiBackendFlags_RendererHasVtxOffset;
  io.ConfigFlags |= ImGuiConfigFlags_NavEnableKeyboard;
  io.ConfigWindowsMoveFromTitleBarOnly = true;
  ImGui_ImplGlfw_InitForVulkan(window.handle(), true);
}

Interface::~Interface() {
  textures_.destroy(fonts_);
  ImGui_ImplGlfw_Shutdown();
  ImGui::DestroyContext();
}

void Interface::setScale(float scale) {
  if (std::abs(scale - scale_) < 0.01f) return;
  scale_ = scale;
  setLook(scale);
  loadFonts(scale);
  ImGuiIO& io = ImGui::GetIO();
  unsigned char* pixels = nullptr;
  int width = 0, height = 0;
  io.Fonts->GetTexDataAsRGBA32(&pixels, &width, &height);
  textures_.destroy(fonts_);
  const size_t bytes = size_t{4} * static_cast<size_t>(width) * static_cast<size_t>(height);
  fonts_ = textures_.create(width, height, {pixels, bytes});
  io.Fonts->SetTexID(reinterpret_cast<ImTextureID>(static_cast<uintptr_t>(fonts_)));
}

void Interface::beginFrame() {
  ImGui_ImplGlfw_NewFrame();
  ImGui::NewFrame();
}

}  // namespace quor::ui
