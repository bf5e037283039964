// Pictures of files, for panels to show: read and scaled on a worker thread, then kept on the GPU as long as they are
// asked for. The interface's thread only.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>

namespace quor::ui {

// The interface library's handle of a picture; 0: no picture.
using TextureId = uint64_t;

struct Picture {
  TextureId texture = 0;
  int width = 0;  // pixels of the texture
  int height = 0;
};

class ImageCache {
 public:
  virtual ~ImageCache() = default;

  // The picture with its longest edge at most `longestEdge` pixels; nothing while it is being read. A file that is no
  // picture gives one without a texture. A file that has changed is read again.
  virtual std::optional<Picture> picture(const std::filesystem::path& file, int longestEdge) = 0;
};

}  // namespace quor::ui
