// How a video is sampled: how often, at which size, under which file names, and through which filters. The same plan is
// carried out by FFmpeg's libraries (video_sampler.h) or by the ffmpeg program (ffmpeg_fallback.h).
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "base/image/image.h"
#include "ingest/video/video_file.h"
#include "settings/settings.h"

namespace quor {

// Frames a second for `wanted` frames of a video of `duration` seconds: 2 when the duration is unknown (not positive),
// otherwise never below 0.05 nor above the video's own `frameRate`.
double samplingRate(double duration, double frameRate, int wanted);
// At least 1, also when the duration is unknown.
int64_t expectedFrames(double duration, double rate);

// The track's size with its longest edge at most `maxDimension` (0 or less: no limit): even where it is scaled, never
// larger than the track.
ImageSize frameSize(const VideoTrack& track, int maxDimension);

struct TrackPlan {
  int stream = 0;
  int videoIndex = 0;
  // Filters as FFmpeg writes them. `head` ends in ","; every output has a tail of its own that ends in YUVJ420P.
  std::string head;
  std::vector<std::string> tails;
  std::vector<std::string> labels;  // of the outputs, for the file names; a plain video's one label is empty
};

struct SamplingPlan {
  std::filesystem::path video;
  std::filesystem::path folder;
  double rate = 0;
  int64_t expected = 1;  // frames of one output
  int jpegQuality = 2;
  std::vector<TrackPlan> tracks;
  std::function<std::string(size_t track, int64_t number)> message;  // the progress message
};

std::string headFilters(double rate, const VideoTrack& track);
std::string scaleTail(ImageSize size);
// For a file that could not be probed.
std::string scaleTailOfUnknown(int maxDimension);
// The track's whole graph, its ends named "[INPUT]" and "[OUTPUT0]", "[OUTPUT1]", ...
std::string filterGraph(const TrackPlan& track, const std::string& input, const std::string& output);

size_t outputCount(const SamplingPlan& plan);
// "f00001.jpg", "f00001_v00.jpg"
std::string frameName(int64_t number, const std::string& label);

}  // namespace quor
