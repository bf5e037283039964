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

int64_t durationOf(const AVFrame& frame) {
#if LIBAVUTIL_VERSION_INT >= AV_VERSION_INT(57, 30, 100)  // gone from its old place in FFmpeg 7
  return frame.duration;
#else
  return frame.pkt_duration;
#endif
}

const uint8_t* sideDataOf(const AVStream& stream, AVPacketSideDataType type) {
#if LIBAVFORMAT_VERSION_INT >= AV_VERSION_INT(60, 15, 100)  // gone from its old place in FFmpeg 8
  const AVCodecParameters& track = *stream.codecpar;
  const AVPacketSideData* found = av_packet_side_data_get(track.coded_side_data, track.nb_coded_side_data, type);
  return found ? found->data : nullptr;
#else
  return av_stream_get_side_data(&stream, type, nullptr);
#endif
}

std::string colorsOf([[maybe_unused]] const AVFrame& frame) {
#if LIBAVFILTER_VERSION_MAJOR >= 10  // FFmpeg 7: filters negotiate them before the first frame
  return ":colorspace=" + std::to_string(frame.colorspace) + ":range=" + std::to_string(frame.color_range);
#else
  return "";
#endif
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
