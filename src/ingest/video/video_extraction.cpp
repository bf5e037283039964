// Ordinary video, and 360-degree video that is cut into flat views.
#include "ingest/video/video_extraction.h"

#include <algorithm>
#include <cmath>

#include "base/files/paths.h"
#include "base/text/text.h"
#include "ingest/sphere/sphere_views.h"

namespace quor {
namespace {

constexpr double kAspectTolerance = 0.02;

void checkSphereSettings(const IngestSettings& settings) {
  if (settings.fieldOfView > 0 && settings.fieldOfView < 180) return;
  throw IngestError("A flat view cannot show " + formatText("%g", settings.fieldOfView) +
                    " degrees. Set the field of view to between 30 and 150 degrees.");
}

std::string sphereTail(const SphereView& view, const IngestSettings& settings) {
  const int size = sphereViewSize(settings);
  std::string text =
      formatText("v360=input=e:output=flat:yaw=%.*f:pitch=%.*f:roll=0:h_fov=%.*f:v_fov=%.*f:w=%d:h=%d", 4, view.yaw, 4,
                 view.pitch, 4, settings.fieldOfView, 4, settings.fieldOfView, size, size) +
      ":interp=lanczos,";
  return text + "format=yuvj420p";
}

TrackPlan spherePlan(double rate, const IngestSettings& settings, const VideoTrack& track) {
  TrackPlan plan{track.stream, track.videoIndex, headFilters(rate, track), {}, {}};
  for (const SphereView& view : sphereViews(settings)) {
    plan.tails.push_back(sphereTail(view, settings));
    plan.labels.push_back(view.name);
  }
  return plan;
}

}  // namespace

std::string sourceText(const std::filesystem::path& path, const VideoTrack& track) {
  std::string text = toUtf8(path.filename()) + ", " + std::to_string(track.width) + " x " +
                     std::to_string(track.height) + formatText(", %.4g fps", track.frameRate);
  return text + (track.duration > 0 ? formatText(", %.1f s", track.duration) : ", of unknown duration");
}

OpenedVideo openVideo(const std::filesystem::path& path, const std::function<bool()>& cancelled) {
  OpenedVideo opened;
  try {
    opened.file = std::make_unique<VideoFile>(path, cancelled);
  } catch (const DecodeFailure& e) {
    opened.failure = e.what();
  }
  return opened;
}

std::vector<std::string> addFrames(ExtractionResult& result, const SamplingPlan& plan,
                                   const std::vector<int64_t>& numbers, LogStore& log) {
  std::vector<std::string> names;
  for (const int64_t number : numbers) {
    for (const TrackPlan& track : plan.tracks) {
      for (const std::string& label : track.labels) names.push_back(frameName(number, label));
    }
  }
  if (names.empty()) throw IngestError("Frame extraction produced no images.");
  for (const std::string& name : names) result.frames.push_back(plan.folder / name);
  log.info("Extracted " + std::to_string(names.size()) + " frames @ " + formatText("%.2f fps", plan.rate));
  return names;
}

ExtractionResult FrameExtractor::extractVideo(const std::filesystem::path& path, InputKind kind,
                                              const IngestSettings& given, const std::filesystem::path& outputFolder,
                                              const IngestProgress& progress) {
  const bool sphere = kind == InputKind::Video360;
  if (sphere) checkSphereSettings(given);
  const OpenedVideo opened = openVideo(path, cancelled_);
  const VideoTrack track = opened.file ? opened.file->tracks()[0] : VideoTrack{};
  log_.info((sphere ? "360 video: " : "Video: ") + (opened.file ? sourceText(path, track) : toUtf8(path.filename())));

  const IngestSettings settings = sphere ? fittedTo(given, track.width) : given;
  if (sphereViewSize(settings) < sphereViewSize(given)) {
    log_.info(formatText("Views of %d pixels hold all the detail of this sphere; larger ones would only blur it.",
                         sphereViewSize(settings)));
  }
  const int views = sphere ? static_cast<int>(sphereViews(settings).size()) : 1;
  const int wanted = sphere ? std::max(8, settings.targetFrameCount / views) : settings.targetFrameCount;
  SamplingPlan plan;
  plan.video = path;
  plan.folder = outputFolder;
  plan.jpegQuality = settings.jpegQuality;
  plan.rate = samplingRate(track.duration, track.frameRate, wanted);
  plan.expected = expectedFrames(track.duration, plan.rate);
  const std::string sampling = formatText("Sampling %.2f fps -> ~", plan.rate) + std::to_string(plan.expected);

  ExtractionResult result;
  CameraGroup group;
  if (sphere) {
    if (opened.file && std::abs(track.width - 2.0 * track.height) > kAspectTolerance * track.width) {
      log_.warning("Input does not look equirectangular (expected a 2:1 aspect ratio); re-projecting anyway.");
    }
    plan.tracks.push_back(spherePlan(plan.rate, settings, track));
    plan.message = [](size_t, int64_t number) { return "Re-projecting sphere " + std::to_string(number); };
    result.knownIntrinsics = sphereViewCamera(settings);
    const auto& camera = *result.knownIntrinsics;
    log_.info(sampling + " spheres x " + std::to_string(views) + " views");
    log_.info("Each sphere becomes " + std::to_string(views) + formatText(" rectilinear views (f=%.1f px)", camera[0]));
    group.name = "sphere";
    group.cameraModel = "PINHOLE";
    group.cameraParams.assign(camera.begin(), camera.end());
    for (const SphereView& view : sphereViews(settings)) group.rig.push_back({"_" + view.name, rotationOf(view)});
    group.signature = formatText("sphere %d", sphereViewSize(settings));
  } else {
    const ImageSize size = frameSize(track, settings.maxDimension);
    const std::string tail = opened.file ? scaleTail(size) : scaleTailOfUnknown(settings.maxDimension);
    plan.tracks.push_back({track.stream, track.videoIndex, headFilters(plan.rate, track), {tail}, {""}});
    plan.message = [](size_t, int64_t number) { return "Extracting frame " + std::to_string(number); };
    log_.info(sampling + " frames");
    group.name = "video";
    group.signature = "video " + std::to_string(size.width) + "x" + std::to_string(size.height) +
                      (opened.file ? " " + opened.file->camera() : "");
  }
  group.images = addFrames(
      result, plan, sampleVideo(opened.file.get(), opened.failure, plan, {log_, ffmpeg_, cancelled_, progress}), log_);
  result.groups.push_back(std::move(group));
  return result;
}

}  // namespace quor
