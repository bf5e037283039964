// JPEG files through FFmpeg's encoder, on FFmpeg's quality scale. Not thread-safe.
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <span>
#include <vector>

struct AVFrame;

namespace quor {

class JpegEncoder {
 public:
  explicit JpegEncoder(int qualityScale);  // 1 (best) .. 31; IngestSettings::jpegQuality
  ~JpegEncoder();
  JpegEncoder(const JpegEncoder&) = delete;
  JpegEncoder& operator=(const JpegEncoder&) = delete;

  // The bytes of a JPEG file, valid until the next call. The frame is YUVJ420P (full range). Throws IngestError.
  std::span<const uint8_t> encode(const AVFrame& frame);

 private:
  struct State;
  std::unique_ptr<State> state_;
};

// Writes `bytes` beside `path` and moves them over it. Throws IngestError "Writing PATH failed (disk full?)" or
// "Cannot write PATH".
void writeFrameFile(const std::filesystem::path& path, std::span<const uint8_t> bytes);

}  // namespace quor
