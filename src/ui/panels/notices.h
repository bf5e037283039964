#pragma once

#include <vector>

#include "ui/models/notice.h"
#include "ui/panel_context.h"

namespace quor::ui {

// Errors one after the other, each in front of everything until it is dismissed; good news in a corner, in nobody's
// way.
void drawNotices(std::vector<Notice>& notices, const PanelContext& context);

}  // namespace quor::ui
