// Helpers for FFmpeg's libraries: owning pointers, error numbers as text, silence on standard error, and the
// differences between versions (4.4 to 9).
#pragma once

#include <memory>
#include <string>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavfilter/avfilter.h>
#include <libavformat/avformat.h>
#include <libavutil/frame.h>
}

namespace quor {

struct FfmpegDeleter {
  void operator()(AVFrame* frame) const { av_frame_free(&frame); }
  void operator()(AVPacket* packet) const { av_packet_free(&packet); }
  void operator()(AVCodecContext* codec) const { avcodec_free_context(&codec); }
  void operator()(AVFormatContext* input) const { avformat_close_input(&input); }
  void operator()(AVFilterGraph* graph) const { avfilter_graph_free(&graph); }
};
using FramePtr = std::unique_ptr<AVFrame, FfmpegDeleter>;
using PacketPtr = std::unique_ptr<AVPacket, FfmpegDeleter>;
using CodecPtr = std::unique_ptr<AVCodecContext, FfmpegDeleter>;
using InputPtr = std::unique_ptr<AVFormatContext, FfmpegDeleter>;
using GraphPtr = std::unique_ptr<AVFilterGraph, FfmpegDeleter>;

FramePtr newFrame();  // both throw std::bad_alloc
PacketPtr newPacket();

// A frame's duration in its time base, 0 when unknown.
int64_t durationOf(const AVFrame& frame);
// Side data of a whole track; null when the container has none of this type.
const uint8_t* sideDataOf(const AVStream& stream, AVPacketSideDataType type);
// The frame's matrix and range as further options of a "buffer" filter; empty where filters take them from each frame.
std::string colorsOf(const AVFrame& frame);

// FFmpeg's text for one of its negative error numbers.
std::string ffmpegErrorText(int error);

// From now on the libraries print nothing; the last error that they report is kept instead. May be called often, from
// any thread. The libraries have one log for the whole program, hence no object.
void captureFfmpegLog();
void clearFfmpegLog();
std::string lastFfmpegError();  // one line, empty when there was none since clearFfmpegLog()

}  // namespace quor
