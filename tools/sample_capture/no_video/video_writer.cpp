#include "sample_capture/video_writer.h"

#include <stdexcept>

namespace quor::sample {

struct VideoWriter::State {};

VideoWriter::VideoWriter(const std::filesystem::path&, const VideoFormat&) {
  throw std::runtime_error(
      "This build cannot write video. Build with -DOMBRELUX_MEDIA=ON, or make photographs: --kind photos.");
}

VideoWriter::~VideoWriter() = default;

void VideoWriter::write(int, const Image&) {}

void VideoWriter::finish() {}

}  // namespace quor::sample
