// The groups of settings as the window shows them.
#pragma once

#include "project/project.h"
#include "settings/settings_table.h"

namespace quor::ui {

const char* groupTitle(SettingGroup group);
// Whether settings of the group mean anything for these inputs.
bool groupApplies(SettingGroup group, const Project& project);
// Whether the window shows the setting for such a project.
bool isShown(const Setting& setting, const Project& project);

// A project's settings with what decides which of them matter, and without the rest, which can be large.
Project settingsOf(const Project& project);

}  // namespace quor::ui
