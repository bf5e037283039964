// Where the window was and which panels were open, kept in window.json between two starts.
#pragma once

#include <filesystem>
#include <map>
#include <span>
#include <string>

namespace quor::ui {

struct WindowArea {
  int x = 0, y = 0, width = 0, height = 0;  // screen coordinates
  bool operator==(const WindowArea&) const = default;
};

struct WindowState {
  // Of the window when it is not maximised; a width of 0: to be chosen, in the middle of the main monitor.
  WindowArea area;
  bool maximised = false;
  std::map<std::string, bool> panels;  // by name: whether it is open

  // A missing or damaged file gives the defaults, and so does each member that makes no sense.
  static WindowState load(const std::filesystem::path& file = defaultFile());
  // Makes the folder. Throws std::runtime_error.
  void save(const std::filesystem::path& file = defaultFile()) const;

  bool isOpen(const std::string& panel, bool byDefault) const;

  // The area to open the window with: the remembered one when enough of its title bar to get hold of lies on a monitor,
  // cut to that monitor's size; else one in the middle of the first, which is the main one. `monitors` are their areas
  // without task bars.
  WindowArea areaOn(std::span<const WindowArea> monitors) const;

  // userDataFolder()/window.json
  static std::filesystem::path defaultFile();
};

}  // namespace quor::ui
