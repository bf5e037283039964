// The interface library's side of a window: its context, its input, its fonts and look at the scale in force. One per
// process, on the main thread.
#pragma once

#include "ui/vulkan/textures.h"
#include "ui/window.h"

namespace quor::ui {

class Interface {
 public:
  Interface(Window& window, Textures& textures);
  ~Interface();
  Interface(const Interface&) = delete;
  Interface& operator=(const Interface&) = delete;

  // Rebuilds fonts and sizes when the scale is another; between frames.
  void setScale(float scale);

  void beginFrame();

 private:
  Textures& textures_;
  TextureId fonts_ = 0;
  float scale_ = 0;
};

}  // namespace quor::ui
