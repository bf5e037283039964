// Every setting of a project with its name, its meaning in a sentence and its limits: one table for the form of a new
// project and for the settings of an open one.
#pragma once

#include <array>
#include <string>
#include <variant>
#include <vector>

#include "project/project.h"

namespace quor::ui {

// Headings under which settings are shown, in this order.
enum class SettingGroup { Frames, Sphere, Fisheye, Cameras, Training };
inline constexpr std::array kSettingGroups = {SettingGroup::Frames, SettingGroup::Sphere, SettingGroup::Fisheye,
                                              SettingGroup::Cameras, SettingGroup::Training};
const char* groupTitle(SettingGroup group);
// Whether settings of the group mean anything for these inputs.
bool groupApplies(SettingGroup group, const Project& project);

struct IntSetting {
  int& (*of)(Project&);
  int least, most;
  const char* zero = nullptr;  // what 0 means, where it is not a number like others
};
struct CountSetting {
  uint64_t& (*of)(Project&);
  uint64_t most;
  const char* zero = nullptr;
};
struct RealSetting {
  double (*get)(const Project&);
  void (*set)(Project&, double);
  double least, most;
  const char* format;  // printf's, of a double
};
struct SwitchSetting {
  bool& (*of)(Project&);
};
struct ChoiceSetting {
  int (*get)(const Project&);
  void (*set)(Project&, int);
  std::vector<const char*> words;  // for the values from 0
};
struct TextSetting {
  std::string& (*of)(Project&);
  std::vector<const char*> suggestions;
};
struct ColourSetting {
  std::array<float, 3>& (*of)(Project&);
};

struct Setting {
  SettingGroup group;
  const char* key;  // as in project.json
  const char* label;
  const char* meaning;  // a sentence or two
  std::variant<IntSetting, CountSetting, RealSetting, SwitchSetting, ChoiceSetting, TextSetting, ColourSetting> value;
};

// All but continueFromCheckpoint: in the window the button that is pressed decides that.
const std::vector<Setting>& settingsTable();
const Setting& settingNamed(const std::string& key);  // std::out_of_range

// A project's settings with what decides which of them matter, and without the rest, which can be large.
Project settingsOf(const Project& project);
void assignSettings(Project& to, const Project& from);

// Brings every setting within its limits.
void clampSettings(Project& project);

}  // namespace quor::ui
