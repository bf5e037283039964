#pragma once

#include "ui/models/files/file_browser.h"
#include "ui/panel_context.h"

namespace quor::ui {

// A modal window.
void drawFileBrowserPanel(FileBrowser& browser, const PanelContext& context);

}  // namespace quor::ui
