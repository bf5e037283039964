// What every panel may use beside the model that it draws.
#pragma once

#include "ui/viewport/image_cache.h"

namespace quor::ui {

class FileDialog;

struct PanelContext {
  ImageCache& images;
  FileDialog& dialogs;
  float scale = 1;  // pixels of the interface per unit: the display's scale times the user's
};

}  // namespace quor::ui
