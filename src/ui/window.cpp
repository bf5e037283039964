#include "ui/window.h"

// volk.h first: GLFW then declares its Vulkan functions and includes no OpenGL.
#define GLFW_INCLUDE_NONE
#include <GLFW/glfw3.h>

#include <algorithm>
#include <chrono>
#include <stdexcept>
#include <utility>
#include <vector>

#include "base/files/paths.h"
#include "gpu/device/vulkan_context.h"

namespace quor::ui {
namespace {

constexpr int kMinWidth = 720, kMinHeight = 480;

std::string lastError() {
  const char* text = nullptr;
  glfwGetError(&text);
  return text != nullptr ? text : "unknown reason";
}

Window& windowOf(GLFWwindow* window) {
  return *static_cast<Window*>(glfwGetWindowUserPointer(window));
}

std::vector<WindowArea> monitorAreas() {
  int count = 0;
  GLFWmonitor** monitors = glfwGetMonitors(&count);
  std::vector<WindowArea> areas;
  for (int i = 0; i < count; ++i) {
    WindowArea area;
    glfwGetMonitorWorkarea(monitors[i], &area.x, &area.y, &area.width, &area.height);
    areas.push_back(area);
  }
  return areas;
}

}  // namespace

Window::Window(const std::string& title, const WindowState& state) : title_(title) {
  if (glfwInit() != GLFW_TRUE) {
    throw std::runtime_error("No window can be opened here (" + lastError() +
                             "). Everything can be done without one: see `Ombrelux help`.");
  }
  const WindowArea area = state.areaOn(monitorAreas());
  glfwWindowHint(GLFW_CLIENT_API, GLFW_NO_API);
  glfwWindowHint(GLFW_MAXIMIZED, state.maximised ? GLFW_TRUE : GLFW_FALSE);
  glfwWindowHint(GLFW_VISIBLE, GLFW_FALSE);  // until it is where it belongs
  glfwWindowHintString(GLFW_X11_CLASS_NAME, "Ombrelux");
  window_ = glfwCreateWindow(std::max(area.width, kMinWidth), std::max(area.height, kMinHeight), title.c_str(), nullptr,
                             nullptr);
  if (window_ == nullptr) {
    const std::string reason = lastError();
    glfwTerminate();
    throw std::runtime_error("The window could not be opened (" + reason + ").");
  }
  glfwSetWindowSizeLimits(window_, kMinWidth, kMinHeight, GLFW_DONT_CARE, GLFW_DONT_CARE);
  if (!state.maximised) glfwSetWindowPos(window_, area.x, area.y);
  glfwShowWindow(window_);
  glfwSetWindowUserPointer(window_, this);
  glfwSetDropCallback(window_, [](GLFWwindow* window, int count, const char** paths) {
    for (int i = 0; i < count; ++i) windowOf(window).dropped_.push_back(fromUtf8(paths[i]));
  });
  glfwSetKeyCallback(window_, [](GLFWwindow* window, int key, int scancode, int action, int modifiers) {
    const bool plain = (modifiers & (GLFW_MOD_ALT | GLFW_MOD_SUPER)) == 0;
    const char* name = glfwGetKeyName(key, scancode);  // by the user's keyboard layout
    if (action != GLFW_PRESS || !plain || !(modifiers & GLFW_MOD_CONTROL) || name == nullptr || name[1] != 0) return;
    const char letter = name[0] >= 'a' && name[0] <= 'z' ? static_cast<char>(name[0] - 'a' + 'A') : name[0];
    windowOf(window).shortcuts_.push_back({letter, (modifiers & GLFW_MOD_SHIFT) != 0});
  });
  glfwSetWindowCloseCallback(window_, [](GLFWwindow* window) {
    windowOf(window).closeWish_ = true;
    glfwSetWindowShouldClose(window, GLFW_FALSE);  // the interface asks first
  });
}

Window::~Window() {
  glfwDestroyWindow(window_);
  glfwTerminate();
}

VkSurfaceKHR Window::makeSurface(VkInstance instance) const {
  VkSurfaceKHR surface = VK_NULL_HANDLE;
  gs::check(glfwCreateWindowSurface(instance, window_, nullptr, &surface), "glfwCreateWindowSurface");
  return surface;
}

bool Window::waitEvents(double seconds) {
  const auto start = std::chrono::steady_clock::now();
  if (seconds > 0) {
    glfwWaitEventsTimeout(seconds);
  } else {
    glfwPollEvents();
  }
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count() < 0.9 * seconds;
}

void Window::setTitle(const std::string& title) {
  if (title == title_) return;
  title_ = title;
  glfwSetWindowTitle(window_, title.c_str());
}

void Window::framebufferSize(int& width, int& height) const {
  glfwGetFramebufferSize(window_, &width, &height);
}

bool Window::minimised() const {
  return glfwGetWindowAttrib(window_, GLFW_ICONIFIED) == GLFW_TRUE;
}

bool Window::focused() const {
  return glfwGetWindowAttrib(window_, GLFW_FOCUSED) == GLFW_TRUE;
}

void Window::requestAttention() {
  glfwRequestWindowAttention(window_);
}

float Window::contentScale() const {
  float x = 1, y = 1;
  glfwGetWindowContentScale(window_, &x, &y);
  return std::max({x, y, 0.5f});
}

void Window::remember(WindowState& state) const {
  state.maximised = glfwGetWindowAttrib(window_, GLFW_MAXIMIZED) == GLFW_TRUE;
  if (state.maximised || minimised()) return;  // keep the area that the window returns to
  glfwGetWindowPos(window_, &state.area.x, &state.area.y);
  glfwGetWindowSize(window_, &state.area.width, &state.area.height);
}

std::vector<std::filesystem::path> Window::takeDropped() {
  return std::exchange(dropped_, {});
}

std::vector<Shortcut> Window::takeShortcuts() {
  return std::exchange(shortcuts_, {});
}

bool Window::takeCloseWish() {
  return std::exchange(closeWish_, false);
}

}  // namespace quor::ui
