#include "ingest/video/video_sampler.h"

#include <algorithm>
#include <map>
#include <memory>
#include <system_error>

#include "base/failures.h"
#include "base/files/paths.h"
#include "ingest/frame_writer.h"
#include "ingest/video/ffmpeg_fallback.h"
#include "ingest/video/track_decoder.h"

namespace quor {
namespace {

void removeFile(const std::filesystem::path& path) {
  std::error_code ignored;
  std::filesystem::remove(path, ignored);
}

// Which outputs have which frames; deletes those that are alone.
class FrameTally {
 public:
  explicit FrameTally(const SamplingPlan& plan) : plan_(plan), outputs_(outputCount(plan)) {}

  void add(int64_t number) { ++counts_[number]; }

  std::vector<int64_t> complete() const {
    std::vector<int64_t> numbers;
    for (const auto& [number, count] : counts_) {
      if (count == outputs_) {
        numbers.push_back(number);
        continue;
      }
      for (const TrackPlan& track : plan_.tracks) {
        for (const std::string& label : track.labels) removeFile(plan_.folder / frameName(number, label));
      }
    }
    return numbers;
  }

 private:
  const SamplingPlan& plan_;
  size_t outputs_;
  std::map<int64_t, size_t> counts_;
};

void readPackets(VideoFile& file, std::vector<std::unique_ptr<TrackDecoder>>& decoders, bool& readFailed,
                 const std::function<bool()>& cancelled, const std::function<TrackDecoder::Sink(size_t)>& sinkOf) {
  const PacketPtr packet = newPacket();
  while (true) {
    if (cancelled()) throw Cancelled();
    const int error = av_read_frame(&file.context(), packet.get());
    if (error == AVERROR(EAGAIN)) continue;
    if (error < 0) {
      readFailed = error != AVERROR_EOF;
      break;
    }
    for (size_t i = 0; i < decoders.size(); ++i) {
      if (decoders[i]->stream() == packet->stream_index) decoders[i]->decode(packet.get(), sinkOf(i));
    }
    av_packet_unref(packet.get());
  }
  for (size_t i = 0; i < decoders.size(); ++i) decoders[i]->decode(nullptr, sinkOf(i));
}

}  // namespace

std::vector<int64_t> sampleInProcess(VideoFile& file, const SamplingPlan& plan, const SamplingContext& context,
                                     std::vector<std::filesystem::path>& written) {
  clearFfmpegLog();
  std::vector<std::unique_ptr<TrackDecoder>> decoders;
  for (const TrackPlan& track : plan.tracks) decoders.push_back(std::make_unique<TrackDecoder>(file, track, plan.rate));
  FrameTally tally(plan);
  FrameWriter writer(plan.jpegQuality);
  const double total = static_cast<double>(plan.expected) * static_cast<double>(outputCount(plan));
  std::optional<int64_t> first;

  const auto sinkOf = [&](size_t track) {
    return [&, track](size_t output, int64_t time, FramePtr frame) {
      if (context.cancelled()) throw Cancelled();
      if (!first) first = time;
      const int64_t number = time - *first + 1;
      if (number < 1) return;  // before the other track begins
      const std::filesystem::path path = plan.folder / frameName(number, plan.tracks[track].labels[output]);
      written.push_back(path);
      writer.write(path, std::move(frame));
      tally.add(number);
      context.progress(plan.message(track, number),
                       static_cast<float>(std::min(1.0, static_cast<double>(written.size()) / total)));
    };
  };
  bool damaged = false;
  readPackets(file, decoders, damaged, context.cancelled, sinkOf);
  writer.finish();
  if (context.cancelled()) throw Cancelled();

  std::vector<int64_t> numbers = tally.complete();
  for (const auto& decoder : decoders) damaged = damaged || decoder->damaged() > 0;
  const bool cutOff = static_cast<double>(numbers.size()) < 0.9 * static_cast<double>(plan.expected) - 1;
  if (numbers.empty()) {
    const std::string detail = lastFfmpegError();
    throw DecodeFailure("no picture could be decoded" + (detail.empty() ? "" : ": " + detail));
  }
  if (damaged || cutOff) {
    context.log.warning(toUtf8(plan.video.filename()) + " is damaged or cut off: " + std::to_string(numbers.size()) +
                        " of about " + std::to_string(plan.expected) + " frames could be read.");
  }
  return numbers;
}

std::vector<int64_t> sampleVideo(VideoFile* file, const std::string& failure, const SamplingPlan& plan,
                                 const SamplingContext& context) {
  std::string reason = failure;
  if (file) {
    std::vector<std::filesystem::path> written;
    try {
      return sampleInProcess(*file, plan, context, written);
    } catch (const DecodeFailure& e) {
      reason = e.what();
    }
    for (const std::filesystem::path& path : written) removeFile(path);
  }
  context.log.warning("In-process decoding failed (" + reason + "); retrying with ffmpeg.");
  FrameTally tally(plan);
  for (const int64_t number : sampleWithFfmpeg(plan, context)) tally.add(number);
  return tally.complete();
}

}  // namespace quor
