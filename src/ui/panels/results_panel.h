#pragma once

#include "ui/models/project/results.h"
#include "ui/panel_context.h"

namespace quor::ui {

// The result of a build, its quality, and the buttons that save it elsewhere.
void drawResultsPanel(Results& results, const PanelContext& context);
// The picture that was picked in the panel, in full: photograph on the left, scene on the right.
void drawComparisonWindow(Results& results, const PanelContext& context);

}  // namespace quor::ui
