#include "ingest/sampling.h"

#include <algorithm>
#include <cmath>

#include "base/text/text.h"

namespace quor {
namespace {

constexpr double kRateOfUnknownDuration = 2.0;
constexpr double kLowestRate = 0.05;

int evenPart(double value) {
  return std::max(2, static_cast<int>(std::lround(value / 2)) * 2);
}

}  // namespace

double samplingRate(double duration, double frameRate, int wanted) {
  if (!(duration > 0)) return kRateOfUnknownDuration;
  return std::min(std::max(std::max(wanted, 1) / duration, kLowestRate), frameRate);
}

int64_t expectedFrames(double duration, double rate) {
  return std::max<int64_t>(1, static_cast<int64_t>(std::max(duration, 0.0) * rate));
}

ImageSize frameSize(const VideoTrack& track, int maxDimension) {
  const int longest = std::max(track.width, track.height);
  if (maxDimension <= 0 || longest <= maxDimension) return {track.width, track.height};
  // A limit that is odd must hold, too.
  const int limit = std::max(maxDimension - maxDimension % 2, 2);
  const double scale = static_cast<double>(limit) / longest;
  return {std::min(evenPart(track.width * scale), limit), std::min(evenPart(track.height * scale), limit)};
}

std::string headFilters(double rate, const VideoTrack& track) {
  return formatText("fps=%.6f,", rate) + track.uprightFilters;
}

std::string scaleTail(ImageSize size) {
  return formatText("scale=%d:%d:flags=lanczos,format=yuvj420p", size.width, size.height);
}

std::string scaleTailOfUnknown(int maxDimension) {
  if (maxDimension <= 0) return "format=yuvj420p";
  const std::string factor = formatText("min(1,%d/max(iw,ih))", maxDimension);
  return "scale='max(2,trunc(iw*" + factor + "/2)*2)':'max(2,trunc(ih*" + factor +
         "/2)*2)':flags=lanczos,format=yuvj420p";
}

std::string filterGraph(const TrackPlan& track, const std::string& input, const std::string& output) {
  std::string text = "[" + input + "]" + track.head;
  const size_t count = track.tails.size();
  if (count == 1) return text + track.tails[0] + "[" + output + "0]";
  text += "split=" + std::to_string(count);
  for (size_t i = 0; i < count; ++i) text += "[s" + std::to_string(i) + "]";
  for (size_t i = 0; i < count; ++i) {
    const std::string number = std::to_string(i);
    text.append(";[s").append(number).append("]").append(track.tails[i]);
    text.append("[").append(output).append(number).append("]");
  }
  return text;
}

size_t outputCount(const SamplingPlan& plan) {
  size_t count = 0;
  for (const TrackPlan& track : plan.tracks) count += track.labels.size();
  return count;
}

std::string frameName(int64_t number, const std::string& label) {
  return formatText("f%05lld", static_cast<long long>(number)) + (label.empty() ? "" : "_" + label) + ".jpg";
}

}  // namespace quor
