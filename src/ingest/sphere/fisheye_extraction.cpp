// Dual-fisheye video: two square tracks, one a lens.
#include "base/files/paths.h"
#include "base/text/text.h"
#include "ingest/sphere/sphere_views.h"
#include "ingest/video/video_extraction.h"
#include "ingest/video/video_kind.h"

namespace quor {
namespace {

SamplingPlan lensPlan(const std::filesystem::path& path, const std::vector<VideoTrack>& lenses,
                      const IngestSettings& settings, const std::filesystem::path& outputFolder) {
  SamplingPlan plan;
  plan.video = path;
  plan.folder = outputFolder;
  plan.jpegQuality = settings.jpegQuality;
  plan.rate = samplingRate(lenses[0].duration, lenses[0].frameRate, settings.targetFrameCount);
  plan.expected = expectedFrames(lenses[0].duration, plan.rate);
  for (const VideoTrack& lens : lenses) {
    plan.tracks.push_back({lens.stream,
                           lens.videoIndex,
                           headFilters(plan.rate, lens),
                           {scaleTail(frameSize(lens, settings.maxDimension))},
                           {"lens" + std::to_string(plan.tracks.size() + 1)}});
  }
  plan.message = [](size_t track, int64_t number) {
    return "Lens " + std::to_string(track + 1) + ", frame " + std::to_string(number);
  };
  return plan;
}

CameraGroup lensGroup(const std::string& label, ImageSize size, const IngestSettings& settings) {
  CameraGroup group;
  group.name = label;
  group.cameraModel = "OPENCV_FISHEYE";
  group.cameraParams = fisheyeCamera(settings, std::max(size.width, size.height));
  // A single track need not be square; its middle is where the lens is taken to look.
  group.cameraParams[2] = size.width / 2.0;
  group.cameraParams[3] = size.height / 2.0;
  group.usesFisheyeMask = size.width == size.height;
  group.signature = label + " " + std::to_string(size.width) + "x" + std::to_string(size.height);
  return group;
}

}  // namespace

ExtractionResult FrameExtractor::extractFisheye(const std::filesystem::path& path, const IngestSettings& settings,
                                                const std::filesystem::path& outputFolder,
                                                const IngestProgress& progress) {
  const OpenedVideo opened = openVideo(path, cancelled_);
  if (!opened.file) {
    throw IngestError(toUtf8(path) + " cannot be opened as a video (" + opened.failure +
                      "). It may be damaged or cut off; copy it from the camera again.");
  }
  const auto pair = lensPair(opened.file->tracks());
  std::vector<VideoTrack> lenses = {opened.file->tracks()[pair ? pair->first : 0]};
  if (pair) {
    lenses.push_back(opened.file->tracks()[pair->second]);
  } else {
    log_.warning("This clip has no pair of square lens tracks; treating its one track as a single fisheye lens.");
  }
  const SamplingPlan plan = lensPlan(path, lenses, settings, outputFolder);
  const ImageSize size = frameSize(lenses[0], settings.maxDimension);
  log_.info("Dual-fisheye video: " + sourceText(path, lenses[0]));
  log_.info(formatText("Sampling %.2f fps -> ~", plan.rate) + std::to_string(plan.expected) + " frames per lens x " +
            std::to_string(lenses.size()) + " lenses");

  ExtractionResult result;
  result.lensSize = std::max(size.width, size.height);
  for (const TrackPlan& track : plan.tracks) {
    CameraGroup& group = result.groups.emplace_back(lensGroup(track.labels[0], size, settings));
    if (lenses.size() > 1) group.rig.push_back({"_" + track.labels[0], {}});
  }
  log_.info(formatText("Fisheye lens assumed %g degrees, f=%.1f px (COLMAP refines it)",
                       std::max(settings.fisheyeFieldOfView, 10.0), result.groups[0].cameraParams[0]));

  const auto numbers = sampleVideo(opened.file.get(), "", plan, {log_, ffmpeg_, cancelled_, progress});
  const std::vector<std::string> names = addFrames(result, plan, numbers, log_);
  for (size_t i = 0; i < names.size(); ++i) result.groups[i % lenses.size()].images.push_back(names[i]);
  return result;
}

}  // namespace quor
