#include "sample_capture/video/video_track.h"

#include <array>
#include <stdexcept>
#include <string>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/opt.h>
#include <libswscale/swscale.h>
}

namespace quor::sample {
namespace {

// Half the default step: compression must not be what limits how well cameras can be solved.
constexpr const char* kRateFactor = "16";

// libx264, or FFmpeg's own MPEG-4 at its best quality where that is left out, as in the libraries for Windows.
const AVCodec& findEncoder() {
  const AVCodec* codec = avcodec_find_encoder_by_name("libx264");
  if (!codec) codec = avcodec_find_encoder(AV_CODEC_ID_MPEG4);
  if (!codec) throw std::runtime_error("FFmpeg's libraries were built without an encoder for the video");
  return *codec;
}

void setQuality(AVCodecContext& encoder) {
  if (encoder.codec_id == AV_CODEC_ID_MPEG4) {
    encoder.flags |= AV_CODEC_FLAG_QSCALE;
    encoder.global_quality = FF_QP2LAMBDA;
    return;
  }
  checkAv(av_opt_set(encoder.priv_data, "crf", kRateFactor, 0), "crf");
  checkAv(av_opt_set(encoder.priv_data, "preset", "fast", 0), "preset");
}

AvPtr<AVCodecContext> openEncoder(const AVFormatContext& file, ImageSize size, int framesPerSecond) {
  const AVCodec* codec = &findEncoder();
  AvPtr<AVCodecContext> encoder(avcodec_alloc_context3(codec));
  if (!encoder) throw std::bad_alloc();
  encoder->width = size.width;
  encoder->height = size.height;
  encoder->pix_fmt = AV_PIX_FMT_YUV420P;
  encoder->color_range = AVCOL_RANGE_MPEG;
  encoder->colorspace = AVCOL_SPC_BT709;
  encoder->color_primaries = AVCOL_PRI_BT709;
  encoder->color_trc = AVCOL_TRC_BT709;
  encoder->time_base = {1, framesPerSecond};
  encoder->framerate = {framesPerSecond, 1};
  encoder->gop_size = framesPerSecond;
  encoder->log_level_offset = AV_LOG_ERROR;  // no encoder statistics on the terminal
  encoder->thread_count = 1;                 // the bytes do not depend on the processors
  if (file.oformat->flags & AVFMT_GLOBALHEADER) encoder->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
  setQuality(*encoder);
  checkAv(avcodec_open2(encoder.get(), codec, nullptr), "The video encoder could not be opened");
  return encoder;
}

AvPtr<AVFrame> makeFrame(const AVCodecContext& encoder) {
  AvPtr<AVFrame> frame(av_frame_alloc());
  if (!frame) throw std::bad_alloc();
  frame->format = encoder.pix_fmt;
  frame->width = encoder.width;
  frame->height = encoder.height;
  frame->color_range = encoder.color_range;
  frame->colorspace = encoder.colorspace;
  checkAv(av_frame_get_buffer(frame.get(), 0), "A frame could not be made");
  return frame;
}

AvPtr<SwsContext> makeConverter(ImageSize size) {
  AvPtr<SwsContext> converter(sws_getContext(size.width, size.height, AV_PIX_FMT_RGB24, size.width, size.height,
                                             AV_PIX_FMT_YUV420P, SWS_BICUBIC | SWS_ACCURATE_RND | SWS_FULL_CHR_H_INP,
                                             nullptr, nullptr, nullptr));
  if (!converter) throw std::runtime_error("The colours could not be converted");
  const int* bt709 = sws_getCoefficients(SWS_CS_ITU709);
  constexpr int kFull = 1, kLimited = 0, kUnchanged = 1 << 16;
  checkAv(sws_setColorspaceDetails(converter.get(), bt709, kFull, bt709, kLimited, 0, kUnchanged, kUnchanged),
          "The colours could not be converted");
  return converter;
}

}  // namespace

void AvDeleter::operator()(AVCodecContext* context) const {
  avcodec_free_context(&context);
}
void AvDeleter::operator()(AVFrame* frame) const {
  av_frame_free(&frame);
}
void AvDeleter::operator()(AVPacket* packet) const {
  av_packet_free(&packet);
}
void AvDeleter::operator()(SwsContext* context) const {
  sws_freeContext(context);
}

int checkAv(int result, const char* what) {
  if (result >= 0) return result;
  std::array<char, AV_ERROR_MAX_STRING_SIZE> reason{};
  av_strerror(result, reason.data(), reason.size());
  throw std::runtime_error(std::string(what) + ": " + reason.data());
}

VideoTrack::VideoTrack(AVFormatContext& file, ImageSize size, int framesPerSecond)
    : file_(file),
      encoder_(openEncoder(file, size, framesPerSecond)),
      frame_(makeFrame(*encoder_)),
      packet_(av_packet_alloc()),
      toYuv_(makeConverter(size)) {
  stream_ = avformat_new_stream(&file, nullptr);
  if (!stream_ || !packet_) throw std::bad_alloc();
  stream_->time_base = encoder_->time_base;
  stream_->avg_frame_rate = encoder_->framerate;
  checkAv(avcodec_parameters_from_context(stream_->codecpar, encoder_.get()), "A track could not be made");
}

void VideoTrack::encode(const Image& image) {
  checkAv(av_frame_make_writable(frame_.get()), "A frame could not be made");
  padded_.assign(image.rgb.begin(), image.rgb.end());
  padded_.resize(padded_.size() + AV_INPUT_BUFFER_PADDING_SIZE);  // the scaler reads whole vectors at the end
  const uint8_t* rows[] = {padded_.data()};
  const int strides[] = {3 * image.width};
  sws_scale(toYuv_.get(), rows, strides, 0, image.height, frame_->data, frame_->linesize);
  frame_->pts = next_++;
  send(frame_.get());
}

void VideoTrack::flush() {
  send(nullptr);
}

void VideoTrack::send(const AVFrame* frame) {
  checkAv(avcodec_send_frame(encoder_.get(), frame), "A frame could not be encoded");
  for (;;) {
    const int result = avcodec_receive_packet(encoder_.get(), packet_.get());
    if (result == AVERROR(EAGAIN) || result == AVERROR_EOF) return;
    checkAv(result, "A frame could not be encoded");
    if (packet_->duration == 0) packet_->duration = 1;
    av_packet_rescale_ts(packet_.get(), encoder_->time_base, stream_->time_base);
    packet_->stream_index = stream_->index;
    checkAv(av_interleaved_write_frame(&file_, packet_.get()), "Writing failed (disk full?)");
  }
}

}  // namespace quor::sample
