// The operating system's window: size, dropped files, shortcuts and the request to close it. One per process, on the
// main thread.
#pragma once

#include <volk.h>

#include <filesystem>
#include <string>
#include <vector>

#include "ui/models/view/window_state.h"

struct GLFWwindow;

namespace quor::ui {

// A key pressed with Control, and perhaps more. Letters, digits and signs are their character, letters as capitals.
struct Shortcut {
  char key = 0;
  bool shift = false;
};

class Window {
 public:
  // Where it was last. Throws std::runtime_error where there is no display.
  Window(const std::string& title, const WindowState& state);
  ~Window();
  Window(const Window&) = delete;
  Window& operator=(const Window&) = delete;

  GLFWwindow* handle() const { return window_; }
  VkSurfaceKHR makeSurface(VkInstance instance) const;

  // Waits for something to happen, at most that long; true when something has.
  bool waitEvents(double seconds);

  void setTitle(const std::string& title);
  void framebufferSize(int& width, int& height) const;
  bool minimised() const;
  bool focused() const;
  // Blinks in the task bar, or what the desktop does instead.
  void requestAttention();
  // Of the monitor that it is on: 1 for an ordinary one, 2 for one of twice the density.
  float contentScale() const;
  // Puts where it is now into the state.
  void remember(WindowState& state) const;

  // Once each.
  std::vector<std::filesystem::path> takeDropped();
  // Kept even when the key was let go before the next frame, which a busy device can make late.
  std::vector<Shortcut> takeShortcuts();
  bool takeCloseWish();

 private:
  GLFWwindow* window_ = nullptr;
  std::vector<std::filesystem::path> dropped_;
  std::vector<Shortcut> shortcuts_;
  bool closeWish_ = false;
  std::string title_;
};

}  // namespace quor::ui
