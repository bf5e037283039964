#pragma once

#include "ui/models/project/workspace.h"

namespace quor::ui {

// The open project: its name and media, its three stages and the buttons that run them.
void drawStagesPanel(Workspace& workspace);

}  // namespace quor::ui
