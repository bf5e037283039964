#include "sample_capture/video_writer.h"

#include <stdexcept>
#include <string>
#include <vector>

#include "base/files/paths.h"
#include "sample_capture/video/video_track.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/spherical.h>
}

namespace quor::sample {
namespace {

struct FileDeleter {
  void operator()(AVFormatContext* file) const {
    avio_closep(&file->pb);
    avformat_free_context(file);
  }
};

// Takes the data over where it succeeds.
bool addSideData(AVStream& stream, AVPacketSideDataType type, uint8_t* data, size_t size) {
#if LIBAVFORMAT_VERSION_INT >= AV_VERSION_INT(60, 15, 100)  // FFmpeg 6.1; the other is gone in 8
  AVCodecParameters& track = *stream.codecpar;
  return av_packet_side_data_add(&track.coded_side_data, &track.nb_coded_side_data, type, data, size, 0) != nullptr;
#else
  return av_stream_add_side_data(&stream, type, data, size) >= 0;
#endif
}

void markEquirectangular(AVFormatContext& file, AVStream& stream) {
  size_t size = 0;
  AVSphericalMapping* mapping = av_spherical_alloc(&size);
  if (!mapping) throw std::bad_alloc();
  mapping->projection = AV_SPHERICAL_EQUIRECTANGULAR;
  if (!addSideData(stream, AV_PKT_DATA_SPHERICAL, reinterpret_cast<uint8_t*>(mapping), size)) {
    av_free(mapping);
    throw std::bad_alloc();
  }
  file.strict_std_compliance = FF_COMPLIANCE_UNOFFICIAL;  // else the muxer leaves it out
}

}  // namespace

struct VideoWriter::State {
  std::filesystem::path path;
  std::unique_ptr<AVFormatContext, FileDeleter> file;
  std::vector<VideoTrack> tracks;
  bool finished = false;

  ~State() {
    if (finished || !file || !file->pb) return;
    tracks.clear();
    file.reset();
    std::error_code ignored;
    std::filesystem::remove(path, ignored);
  }

  // FFmpeg's reasons become sentences that name the file.
  template <typename Work>
  void named(Work&& work) const {
    try {
      work();
    } catch (const std::exception& error) {
      throw std::runtime_error("Cannot write " + toUtf8(path) + ": " + error.what() + ".");
    }
  }

  void open(const VideoFormat& format) {
    AVFormatContext* context = nullptr;
    checkAv(avformat_alloc_output_context2(&context, nullptr, "mp4", nullptr), "There is no mp4 muxer");
    file.reset(context);
    file->flags |= AVFMT_FLAG_BITEXACT;
    for (int i = 0; i < format.tracks; ++i) tracks.emplace_back(*file, format.size, format.framesPerSecond);
    if (format.equirectangular) markEquirectangular(*file, tracks.front().stream());
    // Without the protocol's name a colon in the path would end one.
    checkAv(avio_open(&file->pb, ("file:" + toUtf8(path)).c_str(), AVIO_FLAG_WRITE), "it could not be opened");
    checkAv(avformat_write_header(file.get(), nullptr), "The header could not be written");
  }
};

VideoWriter::VideoWriter(const std::filesystem::path& path, const VideoFormat& format)
    : state_(std::make_unique<State>()) {
  state_->path = path;
  state_->named([&] { state_->open(format); });
}

VideoWriter::~VideoWriter() = default;

void VideoWriter::write(int track, const Image& image) {
  state_->named([&] { state_->tracks[static_cast<size_t>(track)].encode(image); });
}

void VideoWriter::finish() {
  state_->named([&] {
    for (VideoTrack& track : state_->tracks) track.flush();
    checkAv(av_write_trailer(state_->file.get()), "Writing failed (disk full?)");
    checkAv(avio_closep(&state_->file->pb), "Writing failed (disk full?)");
    state_->finished = true;
  });
}

}  // namespace quor::sample
