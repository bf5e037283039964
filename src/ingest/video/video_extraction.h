// Shared by the extraction of ordinary, 360-degree and dual-fisheye video.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "ingest/frame_extractor.h"
#include "ingest/video/video_sampler.h"

namespace quor {

struct OpenedVideo {
  std::unique_ptr<VideoFile> file;  // null when FFmpeg's libraries could not open it for `failure`
  std::string failure;
};
// Throws IngestError for a file that the ffmpeg program could not read either.
OpenedVideo openVideo(const std::filesystem::path& path, const std::function<bool()>& cancelled);

// "NAME, 1920 x 1080, 30 fps, 12.0 s"
std::string sourceText(const std::filesystem::path& path, const VideoTrack& track);

// Adds the plan's frames of these numbers to the result and returns their names, all views or lenses of one instant
// together. Throws IngestError when there are none.
std::vector<std::string> addFrames(ExtractionResult& result, const SamplingPlan& plan,
                                   const std::vector<int64_t>& numbers, LogStore& log);

}  // namespace quor
