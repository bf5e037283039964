#pragma once

#include "ui/models/view/training_history.h"
#include "ui/panel_context.h"

namespace quor::ui {

// Loss, splats and time per step, in the window that is being drawn.
void drawGraphsPanel(const TrainingHistory& history, const PanelContext& context);

}  // namespace quor::ui
