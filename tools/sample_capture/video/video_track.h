// One H.264 track of a file: pictures in, packets into the file's muxer. Colours are BT.709, limited range, 4:2:0.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "base/image/image.h"

struct AVCodecContext;
struct AVFormatContext;
struct AVFrame;
struct AVPacket;
struct AVStream;
struct SwsContext;

namespace quor::sample {

struct AvDeleter {
  void operator()(AVCodecContext* context) const;
  void operator()(AVFrame* frame) const;
  void operator()(AVPacket* packet) const;
  void operator()(SwsContext* context) const;
};
template <typename T>
using AvPtr = std::unique_ptr<T, AvDeleter>;

// Returns the result of an FFmpeg call; throws WHAT + ": " + FFmpeg's reason when it is negative.
int checkAv(int result, const char* what);

class VideoTrack {
 public:
  // Adds a stream to `file`, which must outlive the track.
  VideoTrack(AVFormatContext& file, ImageSize size, int framesPerSecond);

  AVStream& stream() { return *stream_; }
  void encode(const Image& image);
  void flush();

 private:
  void send(const AVFrame* frame);

  AVFormatContext& file_;
  AVStream* stream_ = nullptr;
  AvPtr<AVCodecContext> encoder_;
  AvPtr<AVFrame> frame_;
  AvPtr<AVPacket> packet_;
  AvPtr<SwsContext> toYuv_;
  std::vector<uint8_t> padded_;
  int64_t next_ = 0;
};

}  // namespace quor::sample
