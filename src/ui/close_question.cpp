#include "ui/close_question.h"

#include <imgui.h>

#include "ui/panels/widgets.h"

namespace quor::ui {

namespace {

constexpr const char* kTitle = "Close Ombrelux?";

}  // namespace

void CloseQuestion::interrupt() {
  if (closeWhenIdle_) return closeAtOnce();
  asked_ = true;
  stopAndClose();
}

void CloseQuestion::stopAndClose() {
  closeWhenIdle_ = true;
  workspace_.run().stop();
  batch_.stop();
}

void CloseQuestion::closeAtOnce() {
  workspace_.run().cancel();
  batch_.cancel();
  closed_ = true;
}

void CloseQuestion::draw() {
  closed_ = closed_ || (closeWhenIdle_ && idle());
  if (asked_) {
    asked_ = false;
    if (idle()) {
      closed_ = true;
    } else {
      ImGui::OpenPopup(kTitle);
    }
  }
  ImGui::SetNextWindowPos(ImGui::GetMainViewport()->GetCenter(), ImGuiCond_Appearing, {0.5F, 0.5F});
  if (!ImGui::BeginPopupModal(kTitle, nullptr, ImGuiWindowFlags_AlwaysAutoResize)) return;
  drawChoices();
  ImGui::EndPopup();
}

void CloseQuestion::drawChoices() {
  ImGui::PushTextWrapPos(em(28));
  if (closeWhenIdle_) {
    ImGui::TextUnformatted("Saving what has been reached...");
  } else if (batch_.running()) {
    ImGui::TextUnformatted("A batch is running. It goes on where it stopped when it is started again.");
  } else {
    ImGui::TextUnformatted(workspace_.closeQuestion().c_str());
  }
  ImGui::PopTextWrapPos();
  ImGui::Dummy({0, em(0.5F)});
  if (drawButton({"Stop, save and close", "Keeps what training has reached.", !closeWhenIdle_})) stopAndClose();
  ImGui::SameLine();
  if (drawButton({"Close at once", "What is not on the disk yet is lost."})) closeAtOnce();
  ImGui::SameLine();
  if (ImGui::Button("Go on working") || (!closeWhenIdle_ && idle())) {
    closeWhenIdle_ = false;
    ImGui::CloseCurrentPopup();
  }
}

}  // namespace quor::ui
