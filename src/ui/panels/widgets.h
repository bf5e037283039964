// The pieces that panels are put together from. All sizes go by the font's.
#pragma once

#include <string>

#include "ui/models/button.h"
#include "ui/models/settings/setting_groups.h"

namespace quor::ui {

// In multiples of the font's size.
float em(float count);

void drawWrapped(const std::string& text);
void drawFaint(const std::string& text);    // wrapped, of less importance
void drawWarning(const std::string& text);  // wrapped
void drawHeading(const char* text);
// Of the last item, also when it is disabled.
void drawTooltip(const std::string& text);
// A sign that something goes on, of the height of a line.
void drawSpinner(const std::string& text);

// True when pressed. Its hint is the tooltip.
bool drawButton(const Button& button, float width = 0);
// The one that most people are going to press.
bool drawPrimaryButton(const Button& button, float width = 0);

// True when the user has changed it. Typed text counts once the field loses the focus.
bool drawSetting(const Setting& setting, Project& project);
// Those of a group, folded away under its title; nothing where they do not matter.
bool drawSettings(SettingGroup group, Project& project);

}  // namespace quor::ui
