#pragma once

#include "ui/models/about.h"
#include "ui/panel_context.h"

namespace quor::ui {

void drawAboutWindow(const About& about, const PanelContext& context, bool& open);

}  // namespace quor::ui
