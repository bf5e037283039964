#include "ingest/video/ffmpeg_fallback.h"

#include <algorithm>
#include <cstdlib>

#include "base/failures.h"
#include "base/files/paths.h"
#include "base/process/child_process.h"
#include "base/text/text.h"

namespace quor {
namespace {

// ffmpeg takes "%" in the whole path for its frame number.
std::string outputPattern(const SamplingPlan& plan, const std::string& label) {
  std::string pattern = "file:";
  for (const char c : toUtf8(std::filesystem::absolute(plan.folder))) pattern += c == '%' ? "%%" : std::string(1, c);
  return pattern + "/f%05d" + (label.empty() ? "" : "_" + label) + ".jpg";
}

// The track's filters as the program needs them. It turns the picture upright before them, and leaves the colour matrix
// as it is where it is not told that JPEG files are BT.601.
TrackPlan programPlan(TrackPlan track) {
  track.head = track.head.substr(0, track.head.find(',') + 1);
  for (std::string& tail : track.tails) tail.insert(tail.rfind("format="), "scale=out_color_matrix=bt601,");
  return track;
}

std::vector<std::string> ffmpegArguments(const SamplingPlan& plan, size_t index) {
  const TrackPlan track = programPlan(plan.tracks[index]);
  const std::string stream = "0:v:" + std::to_string(track.videoIndex);
  const std::string quality = std::to_string(std::clamp(plan.jpegQuality, 1, 31));
  std::vector<std::string> arguments = {"-hide_banner",
                                        "-nostdin",
                                        "-y",
                                        "-loglevel",
                                        "error",
                                        "-progress",
                                        "pipe:1",
                                        "-protocol_whitelist",
                                        "file",
                                        "-i",
                                        ffmpegUrl(std::filesystem::absolute(plan.video))};
  const auto add = [&](std::initializer_list<std::string> more) { arguments.insert(arguments.end(), more); };
  const bool views = track.tails.size() > 1;
  if (views) {
    add({"-filter_complex", filterGraph(track, track.videoIndex == 0 ? "0:v" : stream, "o")});
  } else {
    add({"-map", stream, "-vf", track.head + track.tails[0]});
  }
  for (size_t i = 0; i < track.labels.size(); ++i) {
    if (views) add({"-map", "[o" + std::to_string(i) + "]"});
    add({"-q:v", quality, outputPattern(plan, track.labels[i])});
  }
  return arguments;
}

// The number of a line "frame=  12 fps=..." or "frame=12", or nothing.
std::optional<int64_t> frameOfLine(std::string_view line) {
  constexpr std::string_view kKey = "frame=";
  if (!line.starts_with(kKey)) return std::nullopt;
  return std::strtoll(std::string(line.substr(kKey.size())).c_str(), nullptr, 10);
}

// "out_time=00:00:01.0" and the like, which ffmpeg prints for programs.
bool isProgressLine(std::string_view line) {
  const size_t end = line.find('=');
  return end != std::string_view::npos && end > 0 &&
         line.substr(0, end).find_first_not_of("abcdefghijklmnopqrstuvwxyz0123456789_") == std::string_view::npos;
}

void runFfmpeg(const SamplingPlan& plan, size_t index, const SamplingContext& context) {
  std::string lastLine;
  const auto onLine = [&](std::string_view line) {
    if (const auto frame = frameOfLine(line)) {
      const double done = static_cast<double>(*frame) / static_cast<double>(plan.expected);
      const double share =
          (static_cast<double>(index) + std::clamp(done, 0.0, 1.0)) / static_cast<double>(plan.tracks.size());
      context.progress(plan.message(index, *frame), static_cast<float>(share));
    } else if (!isProgressLine(line)) {
      lastLine = line;
      context.log.info("ffmpeg: " + lastLine);
    }
  };
  ChildResult result;
  try {
    result = runChildProcess({context.ffmpeg->executable, ffmpegArguments(plan, index), {}}, onLine, context.cancelled);
  } catch (const ChildStartError& e) {
    throw IngestError(std::string("Could not run ffmpeg: ") + e.what());
  }
  if (result.cancelled) throw Cancelled();
  if (result.exitCode == 0) return;
  const std::string lens = plan.tracks.size() > 1 ? "on lens " + std::to_string(index + 1) + " (exit " : "(exit ";
  throw IngestError("ffmpeg failed " + lens + std::to_string(result.exitCode) + ")" +
                    (lastLine.empty() ? "" : ": " + lastLine) + ". " + toUtf8(plan.video.filename()) +
                    " may be damaged or of a kind that ffmpeg cannot read; copy it from the camera again or convert "
                    "it to MP4.");
}

}  // namespace

std::vector<int64_t> sampleWithFfmpeg(const SamplingPlan& plan, const SamplingContext& context) {
  if (!context.ffmpeg) {
    throw IngestError("Video needs ffmpeg, which was not found. Install ffmpeg or set its location in Settings.");
  }
  for (size_t i = 0; i < plan.tracks.size(); ++i) runFfmpeg(plan, i, context);
  std::vector<int64_t> numbers;
  std::error_code error;
  for (const TrackPlan& track : plan.tracks) {
    for (const std::string& label : track.labels) {
      for (int64_t number = 1; std::filesystem::exists(plan.folder / frameName(number, label), error); ++number) {
        numbers.push_back(number);
      }
    }
  }
  return numbers;
}

}  // namespace quor
