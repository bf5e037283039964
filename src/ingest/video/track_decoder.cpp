#include "ingest/video/track_decoder.h"

#include <algorithm>
#include <cmath>

#include "base/failures.h"
#include "base/parallel.h"

extern "C" {
#include <libavfilter/buffersink.h>
#include <libavfilter/buffersrc.h>
#include <libavutil/mathematics.h>
}

namespace quor {
namespace {

constexpr size_t kMaxSlices = 16;

struct InOutDeleter {
  void operator()(AVFilterInOut* ends) const { avfilter_inout_free(&ends); }
};
using InOutPtr = std::unique_ptr<AVFilterInOut, InOutDeleter>;

InOutPtr graphEnd(const std::string& name, AVFilterContext* filter) {
  InOutPtr end(avfilter_inout_alloc());
  if (!end) throw std::bad_alloc();
  end->name = av_strdup(name.c_str());
  end->filter_ctx = filter;
  return end;
}

// FFmpeg lets a filter's slices be run by its caller. Once the run is cancelled there is nothing more to compute: the
// set-up of a sphere's views alone takes seconds.
int runSlices(AVFilterContext* filter, avfilter_action_func* work, void* data, int* results, int count) {
  const auto& cancelled = *static_cast<const std::function<bool()>*>(filter->graph->opaque);
  parallelFor(static_cast<size_t>(count), [&](size_t i) {
    const int result = cancelled() ? AVERROR_EXIT : work(filter, data, static_cast<int>(i), count);
    if (results) results[i] = result;
  });
  return 0;
}

}  // namespace

TrackDecoder::TrackDecoder(VideoFile& file, const TrackPlan& plan, double rate)
    : plan_(plan), track_(*file.context().streams[plan.stream]), cancelled_(file.cancelled()) {
  track_.discard = AVDISCARD_DEFAULT;
  const AVCodec* decoder = avcodec_find_decoder(track_.codecpar->codec_id);
  if (!decoder) {
    throw DecodeFailure(std::string("no decoder for ") + avcodec_get_name(track_.codecpar->codec_id));
  }
  codec_.reset(avcodec_alloc_context3(decoder));
  if (!codec_) throw std::bad_alloc();
  check(avcodec_parameters_to_context(codec_.get(), track_.codecpar), "decoder");
  codec_->pkt_timebase = track_.time_base;
  codec_->thread_count = 0;
  check(avcodec_open2(codec_.get(), decoder, nullptr), "decoder");

  const int64_t start = file.context().start_time;
  if (start != AV_NOPTS_VALUE) start_ = av_rescale_q(start, AV_TIME_BASE_Q, track_.time_base);
  const double tick = av_q2d(track_.time_base);
  duration_ = std::max<int64_t>(1, static_cast<int64_t>(1 / (file.tracks()[0].frameRate * tick)));
  samplesPerTick_ = rate * tick;
}

// The fps filter takes the last picture before each of its instants (rounded to the nearest). A picture on which no
// other depends need not be decoded when no instant is near.
bool TrackDecoder::mayBeSampled(const AVPacket& packet) const {
  if (samplesPerTick_ <= 0 || packet.pts == AV_NOPTS_VALUE || packet.duration <= 0) return true;
  const double begin = static_cast<double>(packet.pts - start_);
  const double end = begin + 2 * static_cast<double>(packet.duration);
  return std::floor(end * samplesPerTick_ + 0.5) > std::floor(begin * samplesPerTick_ + 0.5);
}

void TrackDecoder::decode(const AVPacket* packet, const Sink& sink) {
  if (packet) {
    codec_->skip_frame = mayBeSampled(*packet) ? AVDISCARD_DEFAULT : AVDISCARD_NONREF;
    if (packet->pts != AV_NOPTS_VALUE) packetsEnd_ = std::max(packetsEnd_, packet->pts - start_ + packet->duration);
  }
  const int error = avcodec_send_packet(codec_.get(), packet);
  if (packet && (packet->flags & AV_PKT_FLAG_CORRUPT)) ++damaged_;
  if (error == AVERROR_INVALIDDATA) {
    ++damaged_;
  } else if (error != AVERROR_EOF) {
    check(error, "decoder");
  }
  receive(sink);
  if (packet || !graph_) return;
  check(av_buffersrc_close(source_, std::max(end_, packetsEnd_), AV_BUFFERSRC_FLAG_PUSH), "filter");
  drain(sink);
}

void TrackDecoder::receive(const Sink& sink) {
  while (true) {
    const int error = avcodec_receive_frame(codec_.get(), frame_.get());
    if (error == AVERROR(EAGAIN) || error == AVERROR_EOF) return;
    if (error == AVERROR_INVALIDDATA) {
      ++damaged_;
      continue;
    }
    check(error, "decoder");
    filter(*frame_, sink);
    av_frame_unref(frame_.get());
  }
}

void TrackDecoder::filter(AVFrame& frame, const Sink& sink) {
  if (!graph_) buildGraph(frame);
  if (frame.width != width_ || frame.height != height_ || frame.format != format_) {
    throw DecodeFailure("the picture changes its size or format on the way");
  }
  const int64_t time = frame.best_effort_timestamp;
  frame.pts = time == AV_NOPTS_VALUE ? end_ : time - start_;
  end_ = frame.pts + (durationOf(frame) > 0 ? durationOf(frame) : duration_);
  check(av_buffersrc_add_frame_flags(source_, &frame, AV_BUFFERSRC_FLAG_PUSH), "filter");
  drain(sink);
}

void TrackDecoder::drain(const Sink& sink) {
  for (size_t i = 0; i < sinks_.size(); ++i) {
    while (true) {
      FramePtr picture = newFrame();
      const int error = av_buffersink_get_frame(sinks_[i], picture.get());
      if (error == AVERROR(EAGAIN) || error == AVERROR_EOF) break;
      check(error, "filter");
      const int64_t number = picture->pts;
      sink(i, number, std::move(picture));
    }
  }
}

void TrackDecoder::buildGraph(const AVFrame& frame) {
  width_ = frame.width;
  height_ = frame.height;
  format_ = frame.format;
  graph_.reset(avfilter_graph_alloc());
  if (!graph_) throw std::bad_alloc();
  graph_->nb_threads = static_cast<int>(processorCount(kMaxSlices));
  graph_->execute = runSlices;
  graph_->opaque = const_cast<std::function<bool()>*>(&cancelled_);
  const std::string source = "video_size=" + std::to_string(width_) + "x" + std::to_string(height_) +
                             ":pix_fmt=" + std::to_string(format_) +
                             ":time_base=" + std::to_string(track_.time_base.num) + "/" +
                             std::to_string(track_.time_base.den) + colorsOf(frame);
  check(avfilter_graph_create_filter(&source_, avfilter_get_by_name("buffer"), "in", source.c_str(), nullptr,
                                     graph_.get()),
        "filter");
  InOutPtr outputs;
  sinks_.assign(plan_.tails.size(), nullptr);
  for (size_t i = sinks_.size(); i-- > 0;) {
    const std::string name = "out" + std::to_string(i);
    check(avfilter_graph_create_filter(&sinks_[i], avfilter_get_by_name("buffersink"), name.c_str(), nullptr, nullptr,
                                       graph_.get()),
          "filter");
    InOutPtr end = graphEnd(name, sinks_[i]);
    end->next = outputs.release();
    outputs = std::move(end);
  }
  AVFilterInOut* begin = graphEnd("in", source_).release();
  AVFilterInOut* ends = outputs.release();
  const int error =
      avfilter_graph_parse_ptr(graph_.get(), filterGraph(plan_, "in", "out").c_str(), &ends, &begin, nullptr);
  avfilter_inout_free(&begin);
  avfilter_inout_free(&ends);
  check(error, "filter");
  check(avfilter_graph_config(graph_.get(), nullptr), "filter");
  if (cancelled_()) throw Cancelled();
}

void TrackDecoder::check(int error, const char* what) const {
  if (error >= 0) return;
  if (cancelled_()) throw Cancelled();
  const std::string detail = lastFfmpegError();
  throw DecodeFailure(std::string(what) + ": " + ffmpegErrorText(error) + (detail.empty() ? "" : ", " + detail));
}

}  // namespace quor
