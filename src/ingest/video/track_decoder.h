// One video track: its packets go in, filtered pictures come out.
#pragma once

#include <functional>
#include <vector>

#include "ingest/sampling.h"

namespace quor {

class TrackDecoder {
 public:
  // `number` counts from 0 at the file's beginning in steps of the sampling rate: pictures of two tracks with the same
  // number were shown at the same time.
  using Sink = std::function<void(size_t output, int64_t number, FramePtr frame)>;

  // `rate` is the plan's, 0 when every picture is wanted. Throws DecodeFailure when the codec is unknown. File and plan
  // must outlive this.
  TrackDecoder(VideoFile& file, const TrackPlan& plan, double rate);

  // A null packet means the end: buffered pictures come out. Throws DecodeFailure, and what the sink throws.
  void decode(const AVPacket* packet, const Sink& sink);

  int stream() const { return plan_.stream; }
  int64_t damaged() const { return damaged_; }  // packets that could not be decoded

 private:
  bool mayBeSampled(const AVPacket& packet) const;
  void receive(const Sink& sink);
  void filter(AVFrame& frame, const Sink& sink);
  void drain(const Sink& sink);
  void buildGraph(const AVFrame& frame);
  void check(int error, const char* what) const;

  const TrackPlan& plan_;
  AVStream& track_;
  double samplesPerTick_ = 0;  // of the track's time base
  int64_t start_ = 0;          // of the file, in the track's time base
  int64_t duration_ = 0;       // of one picture, in the track's time base
  int64_t end_ = 0;            // of the last picture decoded
  int64_t packetsEnd_ = 0;     // of the last picture, decoded or not
  const std::function<bool()>& cancelled_;
  CodecPtr codec_;
  FramePtr frame_ = newFrame();
  GraphPtr graph_;
  AVFilterContext* source_ = nullptr;
  std::vector<AVFilterContext*> sinks_;
  int width_ = 0;
  int height_ = 0;
  int format_ = -1;
  int64_t damaged_ = 0;
};

}  // namespace quor
