#include "ingest/video/ffmpeg_support.h"

#include <array>
#include <cstdarg>
#include <mutex>
#include <new>

#include "base/text/text.h"

extern "C" {
#include <libavutil/error.h>
#include <libavutil/log.h>
}

namespace quor {
namespace {

std::mutex capturedMutex;
std::string captured;

void keepErrors(void* source, int level, const char* format, va_list arguments) {
  if (level > AV_LOG_ERROR) return;
  std::array<char, 512> line;
  int atLineStart = 0;
  av_log_format_line(source, level, format, arguments, line.data(), static_cast<int>(line.size()), &atLineStart);
  std::string text = line.data();
  while (!text.empty() && (text.back() == '\n' || text.back() == '\r')) text.pop_back();
  const std::lock_guard lock(capturedMutex);
  if (!text.empty()) captured = withoutControls(text);
}

}  // namespace

FramePtr newFrame() {
  FramePtr frame(av_frame_alloc());
  if (!frame) throw std::bad_alloc();
  return frame;
}

PacketPtr newPacket() {
  PacketPtr packet(av_packet_alloc());
  if (!packet) throw std::bad_alloc();
  return packet;
}

std::string ffmpegErrorText(int error) {
  std::array<char, AV_ERROR_MAX_STRING_SIZE> text{};
  av_strerror(error, text.data(), text.size());
  return text.data();
}

void captureFfmpegLog() {
  static const bool installed = (av_log_set_callback(keepErrors), true);
  static_cast<void>(installed);
}

void clearFfmpegLog() {
  const std::lock_guard lock(capturedMutex);
  captured.clear();
}

std::string lastFfmpegError() {
  const std::lock_guard lock(capturedMutex);
  return captured;
}

}  // namespace quor
