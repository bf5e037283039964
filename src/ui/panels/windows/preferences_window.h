#pragma once

#include "ui/models/settings/preferences_form.h"
#include "ui/panel_context.h"

namespace quor::ui {

void drawPreferencesWindow(PreferencesForm& form, const PanelContext& context, bool& open);

}  // namespace quor::ui
