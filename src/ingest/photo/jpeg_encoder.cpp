#include "ingest/photo/jpeg_encoder.h"

#include <algorithm>
#include <string>

#include "base/files/atomic_file.h"
#include "ingest/ingest_error.h"
#include "ingest/video/ffmpeg_support.h"

namespace quor {
namespace {

[[noreturn]] void throwNotEncoded(int width, int height, int error) {
  throw IngestError("A picture of " + std::to_string(width) + " x " + std::to_string(height) +
                    " pixels cannot be written as JPEG: " + ffmpegErrorText(error));
}

CodecPtr openEncoder(int quality, int width, int height) {
  const AVCodec* encoder = avcodec_find_encoder(AV_CODEC_ID_MJPEG);
  if (!encoder) throw IngestError("FFmpeg was built without its JPEG encoder; install a complete FFmpeg.");
  CodecPtr codec(avcodec_alloc_context3(encoder));
  if (!codec) throw std::bad_alloc();
  codec->width = width;
  codec->height = height;
  codec->pix_fmt = AV_PIX_FMT_YUVJ420P;
  codec->color_range = AVCOL_RANGE_JPEG;
  codec->time_base = {1, 25};           // required, and without a meaning for single pictures
  codec->sample_aspect_ratio = {1, 1};  // or the file gets no JFIF header
  codec->thread_count = 1;
  codec->flags |= AV_CODEC_FLAG_QSCALE | AV_CODEC_FLAG_BITEXACT;
  codec->global_quality = FF_QP2LAMBDA * quality;
  codec->qmin = codec->qmax = quality;
  if (const int error = avcodec_open2(codec.get(), encoder, nullptr); error < 0) throwNotEncoded(width, height, error);
  return codec;
}

}  // namespace

struct JpegEncoder::State {
  int quality = 2;
  CodecPtr codec;
  PacketPtr packet = newPacket();
};

JpegEncoder::JpegEncoder(int qualityScale) : state_(std::make_unique<State>()) {
  captureFfmpegLog();
  state_->quality = std::clamp(qualityScale, 1, 31);
}

JpegEncoder::~JpegEncoder() = default;

std::span<const uint8_t> JpegEncoder::encode(const AVFrame& frame) {
  State& s = *state_;
  if (!s.codec || s.codec->width != frame.width || s.codec->height != frame.height) {
    s.codec = openEncoder(s.quality, frame.width, frame.height);
  }
  const FramePtr picture(av_frame_clone(&frame));
  if (!picture) throw std::bad_alloc();
  picture->pict_type = AV_PICTURE_TYPE_NONE;
  picture->quality = s.codec->global_quality;
  picture->pts = AV_NOPTS_VALUE;
  int error = avcodec_send_frame(s.codec.get(), picture.get());
  if (error >= 0) {
    av_packet_unref(s.packet.get());
    error = avcodec_receive_packet(s.codec.get(), s.packet.get());
  }
  if (error < 0) {
    s.codec.reset();
    throwNotEncoded(frame.width, frame.height, error);
  }
  return {s.packet->data, static_cast<size_t>(s.packet->size)};
}

void writeFrameFile(const std::filesystem::path& path, std::span<const uint8_t> bytes) try {
  AtomicFile file(path);
  file.stream().write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
  file.commit();
} catch (const std::runtime_error& e) {
  throw IngestError(e.what());
}

}  // namespace quor
