#include "ingest/frame_extractor.h"

#include <algorithm>
#include <map>
#include <new>
#include <set>
#include <system_error>

#include "base/failures.h"
#include "base/files/paths.h"
#include "base/text/text.h"
#include "ingest/sharpness.h"

namespace quor {
namespace {

constexpr double kMaxRejected = 0.4;          // of all frames
constexpr size_t kFewestToScore = 9;          // with fewer, every frame is needed
constexpr float kFractionOfDecoding = 0.85f;  // of an extraction; the rest is scoring

void makeFolder(const std::filesystem::path& folder) {
  std::error_code error;
  std::filesystem::create_directories(folder, error);
  if (error || !std::filesystem::is_directory(folder, error)) {
    throw IngestError("Could not create " + toUtf8(folder) + (error ? ": " + error.message() : ""));
  }
}

}  // namespace

FrameExtractor::FrameExtractor(LogStore& log, std::optional<ToolLocation> ffmpeg, std::function<bool()> cancelled)
    : log_(log), ffmpeg_(std::move(ffmpeg)), cancelled_(std::move(cancelled)) {
  if (!cancelled_) cancelled_ = [] { return false; };
}

ExtractionResult FrameExtractor::extract(const std::filesystem::path& path, InputKind kind,
                                         const IngestSettings& settings, const std::filesystem::path& outputFolder,
                                         const IngestProgress& progress) try {
  const IngestProgress report = progress ? progress : [](const std::string&, float) {};
  makeFolder(outputFolder);
  if (kind == InputKind::Images) return importImages(path, settings, outputFolder, report);

  const bool scores = settings.blurRejection;
  const IngestProgress decoding = [&](const std::string& message, float fraction) {
    report(message, scores && fraction > 0 ? fraction * kFractionOfDecoding : fraction);
  };
  ExtractionResult result = kind == InputKind::DualFisheye ? extractFisheye(path, settings, outputFolder, decoding)
                                                           : extractVideo(path, kind, settings, outputFolder, decoding);
  if (scores && result.frames.size() >= kFewestToScore) rejectBlurryFrames(result, settings, outputFolder, report);
  return result;
} catch (const IngestError&) {
  throw;
} catch (const std::bad_alloc&) {
  throw IngestError("There is not enough memory to read " + toUtf8(path) +
                    ". Close other programs or choose a smaller maximum dimension.");
} catch (const std::exception& e) {
  throw IngestError(e.what());
}

// Every camera's frames, or every view's, are compared among themselves: a lens or view that looks at the sky scores
// lower than its neighbour without being any blurrier, and would otherwise be rejected altogether.
void FrameExtractor::rejectBlurryFrames(ExtractionResult& result, const IngestSettings& settings,
                                        const std::filesystem::path& outputFolder, const IngestProgress& progress) {
  std::map<std::string, std::vector<std::filesystem::path>> streams;  // by the part of the name behind the number
  for (const std::filesystem::path& frame : result.frames) {
    const std::string name = toUtf8(frame.filename());
    streams[name.substr(std::min(name.find('_'), name.size()))].push_back(frame);
  }
  std::set<std::string> rejected;
  std::vector<double> medians;
  size_t before = 0;
  for (const auto& [label, frames] : streams) {
    const SharpnessResult scored = rejectBlurry(frames, settings.blurThreshold, kMaxRejected, [&](size_t count) {
      if (cancelled_()) throw Cancelled();
      const float fraction = static_cast<float>(before + count) / static_cast<float>(result.frames.size());
      progress("Scoring frame sharpness", kFractionOfDecoding + (1 - kFractionOfDecoding) * fraction);
    });
    before += frames.size();
    medians.push_back(scored.median);
    for (const std::filesystem::path& frame : scored.rejected) rejected.insert(toUtf8(frame.filename()));
  }
  if (cancelled_()) throw Cancelled();
  result.rejected = rejected.size();
  if (rejected.empty()) {
    log_.info("No frames fell below the blur threshold");
    return;
  }
  for (const std::string& name : rejected) {
    std::error_code ignored;
    std::filesystem::remove(outputFolder / fromUtf8(name), ignored);
  }
  std::erase_if(result.frames, [&](const auto& frame) { return rejected.contains(toUtf8(frame.filename())); });
  for (CameraGroup& group : result.groups) {
    std::erase_if(group.images, [&](const std::string& name) { return rejected.contains(name); });
  }
  std::sort(medians.begin(), medians.end());
  log_.info("Rejected " + std::to_string(rejected.size()) + " blurry frames (median score " +
            formatText("%.*f", 1, medians[medians.size() / 2]) + ")");
}

}  // namespace quor
