#pragma once

#include "ui/models/view/log_view.h"
#include "ui/panel_context.h"

namespace quor::ui {

// Into the window that is being drawn; follows the end as long as the end is in sight.
void drawLogPanel(LogView& view, const PanelContext& context);

}  // namespace quor::ui
