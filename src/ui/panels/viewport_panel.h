// The viewport as it is drawn and handled: the picture, the cameras over it, the mouse and the keys.
#pragma once

#include <cstdint>
#include <optional>

#include "ui/viewport/image_cache.h"
#include "ui/viewport/viewport.h"

namespace quor::ui {

class Textures;

class ViewportPanel {
 public:
  ViewportPanel(Viewport& viewport, SceneRenderer& renderer, Textures& textures)
      : viewport_(viewport), renderer_(renderer), textures_(textures) {}

  // Fills the window it is called in. `status` ends the line under the picture; `hint` stands where there is none.
  void draw(const std::string& status, const std::string& hint);

 private:
  struct Area {
    float x = 0, y = 0, width = 0, height = 0;
  };

  void takePictures();
  void drawStatus(const std::string& status);
  void drawToolbar();
  void drawCompareBar();
  void drawPicture(const Area& area, const std::string& hint);
  void drawCompared(const Area& area);
  void drawCameras(const Area& area, bool hovered);
  void handleMouse(const Area& area, bool hovered, bool active);
  void handleKeys(bool focused);

  Viewport& viewport_;
  SceneRenderer& renderer_;
  Textures& textures_;
  TextureId picture_ = 0, photograph_ = 0;
  std::optional<RenderedPicture> shown_;  // without its pixels
  uint64_t photographVersion_ = 0;
  bool dragged_ = false;
};

}  // namespace quor::ui
