#include "ui/models/view/window_state.h"

#include <algorithm>
#include <fstream>

#include "base/files/atomic_file.h"
#include "base/files/paths.h"
#include "settings/json_members.h"

namespace quor::ui {

namespace {

constexpr int kMin = 320;      // pixels of width and height below which a window is of no use
constexpr int kMax = 1 << 15;  // beyond any screen
constexpr int kGrip = 100;     // pixels of the title bar that must be within reach
constexpr int kTitleBar = 30;  // above the area
constexpr WindowArea kUsual{0, 0, 1440, 900};

bool makesSense(const WindowArea& area) {
  const auto within = [](int value, int low) { return value >= low && value <= kMax; };
  return within(area.width, kMin) && within(area.height, kMin) && within(area.x, -kMax) && within(area.y, -kMax);
}

bool withinReach(const WindowArea& area, const WindowArea& monitor) {
  const int across = std::min(area.x + area.width, monitor.x + monitor.width) - std::max(area.x, monitor.x);
  const bool titleBar = area.y + kTitleBar > monitor.y && area.y < monitor.y + monitor.height - kTitleBar;
  return across >= kGrip && titleBar;
}

WindowArea inMiddle(const WindowArea& monitor) {
  WindowArea area = kUsual;
  area.width = std::min(area.width, monitor.width * 9 / 10);
  area.height = std::min(area.height, monitor.height * 9 / 10);
  area.x = monitor.x + (monitor.width - area.width) / 2;
  area.y = monitor.y + (monitor.height - area.height) / 2;
  return area;
}

WindowState read(const Json& json) {
  WindowState state;
  WindowArea area;
  readMember(json, "x", area.x);
  readMember(json, "y", area.y);
  readMember(json, "width", area.width);
  readMember(json, "height", area.height);
  if (makesSense(area)) state.area = area;
  readMember(json, "maximised", state.maximised);
  if (const Json* panels = findObject(json, "panels")) {
    for (const auto& [name, open] : panels->items()) readMember(*panels, name.c_str(), state.panels[name]);
  }
  return state;
}

}  // namespace

WindowState WindowState::load(const std::filesystem::path& file) {
  try {
    std::ifstream stream(file, std::ios::binary);
    const Json json = Json::parse(stream);
    return json.is_object() ? read(json) : WindowState();
  } catch (const std::exception&) {
    return {};
  }
}

void WindowState::save(const std::filesystem::path& file) const {
  Json json;
  json["x"] = area.x;
  json["y"] = area.y;
  json["width"] = area.width;
  json["height"] = area.height;
  json["maximised"] = maximised;
  json["panels"] = panels;
  std::error_code shownByOpening;
  std::filesystem::create_directories(file.parent_path(), shownByOpening);
  AtomicFile target(file);
  target.stream() << json.dump(2) << '\n';
  target.commit();
}

bool WindowState::isOpen(const std::string& panel, bool byDefault) const {
  const auto found = panels.find(panel);
  return found == panels.end() ? byDefault : found->second;
}

WindowArea WindowState::areaOn(std::span<const WindowArea> monitors) const {
  if (monitors.empty()) return area.width > 0 ? area : kUsual;
  const auto monitor = std::ranges::find_if(monitors, [this](const WindowArea& m) { return withinReach(area, m); });
  if (area.width <= 0 || monitor == monitors.end()) return inMiddle(monitors.front());
  WindowArea fitted = area;
  fitted.width = std::min(fitted.width, monitor->width);
  fitted.height = std::min(fitted.height, monitor->height);
  return fitted;
}

std::filesystem::path WindowState::defaultFile() {
  return userDataFolder() / "window.json";
}

}  // namespace quor::ui
