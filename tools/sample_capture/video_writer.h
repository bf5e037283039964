// An mp4 file of H.264 tracks, written frame by frame. In a build without media support the constructor throws.
#pragma once

#include <filesystem>
#include <memory>

#include "base/image/image.h"

namespace quor::sample {

struct VideoFormat {
  ImageSize size;  // of every track; both edges even
  int tracks = 1;
  int framesPerSecond = 10;
  bool equirectangular = false;  // the file says that its picture is a whole sphere
};

class VideoWriter {
 public:
  // All functions throw std::runtime_error with a sentence.
  VideoWriter(const std::filesystem::path& path, const VideoFormat& format);
  // Removes the file unless it was finished.
  ~VideoWriter();
  VideoWriter(const VideoWriter&) = delete;
  VideoWriter& operator=(const VideoWriter&) = delete;

  // The next frame of a track (0, 1, ...). Tracks take turns.
  void write(int track, const Image& image);
  void finish();

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace quor::sample
