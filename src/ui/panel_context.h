// What every panel may use, apart from the model that it draws.
#pragma once

#include <filesystem>
#include <functional>

#include "ui/viewport/image_cache.h"

namespace quor::ui {

class FileDialog;

struct PanelContext {
  ImageCache& images;
  FileDialog& dialogs;
  std::function<void(const std::filesystem::path&)> openFolder = {};  // in the desktop's file manager
};

}  // namespace quor::ui
