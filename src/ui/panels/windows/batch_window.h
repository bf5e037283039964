#pragma once

#include "ui/models/batch/batch_form.h"
#include "ui/panel_context.h"

namespace quor::ui {

void drawBatchWindow(BatchForm& form, const PanelContext& context, bool& open);

}  // namespace quor::ui
