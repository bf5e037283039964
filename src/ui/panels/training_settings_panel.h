#pragma once

#include "ui/models/project/workspace.h"
#include "ui/panel_context.h"

namespace quor::ui {

// The settings of the open project.
void drawTrainingSettingsPanel(Workspace& workspace, const PanelContext& context);

}  // namespace quor::ui
