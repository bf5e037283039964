// The pictures of files that panels show, kept on the GPU while they are asked for.
#pragma once

#include <chrono>
#include <map>
#include <string>
#include <utility>

#include "ui/models/background.h"
#include "ui/viewport/image_cache.h"
#include "ui/vulkan/textures.h"

namespace quor::ui {

class FilePictures final : public ImageCache {
 public:
  explicit FilePictures(Textures& textures) : textures_(textures) {}

  std::optional<Picture> picture(const std::filesystem::path& file, int longestEdge) override;
  // Once a frame: takes over pictures that have been read and drops those no longer asked for.
  void update();

 private:
  using Clock = std::chrono::steady_clock;
  struct Entry {
    std::optional<Picture> picture;
    std::filesystem::file_time_type written;
    Clock::time_point asked;
    Clock::time_point looked;
    bool reading = false;
  };
  using Key = std::pair<std::string, int>;

  void read(const Key& key);

  Textures& textures_;
  std::map<Key, Entry> entries_;
  Background background_;
};

}  // namespace quor::ui
