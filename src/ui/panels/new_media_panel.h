#pragma once

#include "ui/models/project/new_media.h"
#include "ui/panel_context.h"

namespace quor::ui {

// The form "New from photos or video", while it is visible.
void drawNewMediaWindow(NewMedia& form, const PanelContext& context);

}  // namespace quor::ui
