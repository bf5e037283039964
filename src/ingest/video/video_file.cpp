#include "ingest/video/video_file.h"

#include <algorithm>
#include <cmath>
#include <fstream>
#include <system_error>

#include "base/failures.h"
#include "base/files/paths.h"
#include "base/text/text.h"

extern "C" {
#include <libavutil/display.h>
#include <libavutil/spherical.h>
}

namespace quor {
namespace {

constexpr double kAssumedFrameRate = 30;

void checkReadable(const std::filesystem::path& path) {
  const std::string name = toUtf8(path);
  std::error_code error;
  const auto status = std::filesystem::status(path, error);
  if (status.type() == std::filesystem::file_type::not_found) {
    throw IngestError("There is no file " + name + ". Check the path.");
  }
  if (std::filesystem::is_directory(status)) throw IngestError(name + " is a folder, not a video file.");
  if (std::filesystem::exists(status) && !std::filesystem::is_regular_file(status)) {
    throw IngestError(name + " is not a regular file, so no video can be read from it.");  // opening a pipe would block
  }
  if (!std::ifstream(path, std::ios::binary)) {
    throw IngestError(name + " cannot be opened. Check that you may read the file.");
  }
  if (std::filesystem::file_size(path, error) == 0 && !error) {
    throw IngestError(name + " is empty (0 bytes). Copy it from the camera again.");
  }
}

int asCancelled(void* cancelled) {
  return (*static_cast<const std::function<bool()>*>(cancelled))() ? 1 : 0;
}

[[noreturn]] void throwFailure(const std::function<bool()>& cancelled, int error) {
  if (cancelled()) throw Cancelled();
  const std::string detail = lastFfmpegError();
  throw DecodeFailure(ffmpegErrorText(error) + (detail.empty() ? "" : ": " + detail));
}

InputPtr openInput(const std::filesystem::path& path, const std::function<bool()>& cancelled) {
  clearFfmpegLog();
  AVFormatContext* context = avformat_alloc_context();
  if (!context) throw std::bad_alloc();
  context->interrupt_callback = {asCancelled, const_cast<std::function<bool()>*>(&cancelled)};
  AVDictionary* options = nullptr;
  av_dict_set(&options, "protocol_whitelist", "file", 0);  // a playlist in disguise must not reach the network
  const int error = avformat_open_input(&context, ffmpegUrl(path).c_str(), nullptr, &options);  // frees it on failure
  av_dict_free(&options);
  if (error < 0) throwFailure(cancelled, error);
  InputPtr input(context);
  if (const int failed = avformat_find_stream_info(context, nullptr); failed < 0) throwFailure(cancelled, failed);
  return input;
}

// The ffmpeg program does this by itself. The display matrix turns by quarters; the rare other
// angles are left alone.
std::string uprightFilters(const int32_t* matrix) {
  if (!matrix) return "";
  const double angle = av_display_rotation_get(matrix);  // counter-clockwise
  if (std::isnan(angle)) return "";
  switch ((static_cast<int>(std::lround(-angle / 90)) % 4 + 4) % 4) {
    case 1:
      return matrix[3] > 0 ? "transpose=cclock_flip," : "transpose=clock,";
    case 2:
      return std::string(matrix[0] < 0 ? "hflip," : "") + (matrix[4] < 0 ? "vflip," : "");
    case 3:
      return matrix[3] < 0 ? "transpose=clock_flip," : "transpose=cclock,";
    default:
      return matrix[4] < 0 ? "vflip," : "";
  }
}

double frameRateOf(const AVStream& stream) {
  for (const AVRational rate : {stream.avg_frame_rate, stream.r_frame_rate}) {
    const double value = rate.den > 0 ? av_q2d(rate) : 0;
    if (value > 0 && value <= 1000) return value;
  }
  return kAssumedFrameRate;
}

double durationOf(const AVFormatContext& input, const AVStream& stream) {
  if (stream.duration > 0) return static_cast<double>(stream.duration) * av_q2d(stream.time_base);
  return input.duration > 0 ? static_cast<double>(input.duration) / AV_TIME_BASE : 0;
}

Projection projectionOf(const AVStream& stream) {
  const auto* mapping = reinterpret_cast<const AVSphericalMapping*>(sideDataOf(stream, AV_PKT_DATA_SPHERICAL));
  if (!mapping) return Projection::Unknown;
  return mapping->projection == AV_SPHERICAL_EQUIRECTANGULAR ? Projection::Equirectangular : Projection::Flat;
}

VideoTrack describeTrack(AVFormatContext& input, AVStream& stream, int videoIndex) {
  VideoTrack track;
  track.stream = stream.index;
  track.videoIndex = videoIndex;
  track.width = stream.codecpar->width;
  track.height = stream.codecpar->height;
  const AVRational aspect = av_guess_sample_aspect_ratio(&input, &stream, nullptr);
  const double ratio = aspect.num > 0 && aspect.den > 0 ? av_q2d(aspect) : 1;
  if (ratio > 0.1 && ratio < 10) track.width = std::max(1, static_cast<int>(std::lround(track.width * ratio)));
  track.uprightFilters =
      uprightFilters(reinterpret_cast<const int32_t*>(sideDataOf(stream, AV_PKT_DATA_DISPLAYMATRIX)));
  if (track.uprightFilters.starts_with("transpose")) std::swap(track.width, track.height);
  track.duration = durationOf(input, stream);
  track.frameRate = frameRateOf(stream);
  track.projection = projectionOf(stream);
  return track;
}

std::string cameraName(const AVFormatContext& input) {
  std::string name;
  for (const char* key : {"com.apple.quicktime.make", "make", "com.apple.quicktime.model", "model"}) {
    const AVDictionaryEntry* entry = av_dict_get(input.metadata, key, nullptr, 0);
    if (entry) name += (name.empty() ? "" : " ") + withoutControls(entry->value);
  }
  return name;
}

}  // namespace

std::string ffmpegUrl(const std::filesystem::path& path) {
  return "file:" + toUtf8(path);
}

VideoFile::VideoFile(const std::filesystem::path& path, const std::function<bool()>& cancelled)
    : cancelled_(cancelled) {
  captureFfmpegLog();
  checkReadable(path);
  input_ = openInput(path, cancelled);
  int videoIndex = 0;
  for (unsigned int i = 0; i < input_->nb_streams; ++i) {
    AVStream& stream = *input_->streams[i];
    stream.discard = AVDISCARD_ALL;
    if (stream.codecpar->codec_type != AVMEDIA_TYPE_VIDEO) continue;
    const bool coverArt = (stream.disposition & AV_DISPOSITION_ATTACHED_PIC) != 0;
    if (!coverArt) tracks_.push_back(describeTrack(*input_, stream, videoIndex));
    ++videoIndex;
  }
  if (tracks_.empty()) {
    throw IngestError(toUtf8(path) + " has no video track, so no frames can be taken from it.");
  }
  camera_ = cameraName(*input_);
}

}  // namespace quor
