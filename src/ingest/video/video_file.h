// A video file opened with FFmpeg's libraries, and its description of the video tracks.
#pragma once

#include <filesystem>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include "ingest/ingest_error.h"
#include "ingest/video/ffmpeg_support.h"

namespace quor {

// FFmpeg's libraries could not read a video; the text is the bare reason. The ffmpeg program may do better.
struct DecodeFailure : std::runtime_error {
  using std::runtime_error::runtime_error;
};

enum class Projection { Unknown, Flat, Equirectangular };  // Flat: or any other that is not equirectangular

struct VideoTrack {
  int stream = 0;      // in the container
  int videoIndex = 0;  // among its video streams: ffmpeg's "0:v:N"
  int width = 0;       // as shown: turned upright, pixels made square
  int height = 0;
  std::string uprightFilters;  // turn the decoded picture upright ("transpose=clock,"); empty or ending in ","
  double duration = 0;         // seconds, 0 when unknown
  double frameRate = 0;        // average, frames a second
  Projection projection = Projection::Unknown;
};

class VideoFile {
 public:
  // Throws IngestError for a file that no decoder can read as a video (missing, empty, without a video track), and
  // DecodeFailure. `cancelled` is asked while the file is read and must outlive this.
  VideoFile(const std::filesystem::path& path, const std::function<bool()>& cancelled);

  const std::vector<VideoTrack>& tracks() const { return tracks_; }  // at least one
  const std::string& camera() const { return camera_; }              // maker and model, empty when not told
  AVFormatContext& context() { return *input_; }
  const std::function<bool()>& cancelled() const { return cancelled_; }

 private:
  const std::function<bool()>& cancelled_;
  InputPtr input_;
  std::vector<VideoTrack> tracks_;
  std::string camera_;
};

// How FFmpeg gets to know a local file, whatever its name looks like.
std::string ffmpegUrl(const std::filesystem::path& path);

}  // namespace quor
