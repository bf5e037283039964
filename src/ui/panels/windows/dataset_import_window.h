#pragma once

#include "ui/models/project/project_session.h"
#include "ui/panel_context.h"

namespace quor::ui {

// The form that imports a COLMAP dataset, while it is to be seen.
void drawDatasetImportWindow(ProjectSession& session, const PanelContext& context);

}  // namespace quor::ui
