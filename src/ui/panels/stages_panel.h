#pragma once

#include "ui/models/project/workspace.h"
#include "ui/panel_context.h"

namespace quor::ui {

// The open project: what it is, its three stages and the buttons that run them. Without a project: how to begin.
void drawStagesPanel(Workspace& workspace, const PanelContext& context);

}  // namespace quor::ui
