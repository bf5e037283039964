// Media to frames. Everything is extracted into frames.partial, which becomes frames/ only when it is whole: a stage
// that was cancelled or killed never leaves frames that could be taken for a finished extraction.
#include <cstdio>
#include <stdexcept>
#include <system_error>

#include "base/files/paths.h"
#include "base/files/staging_folder.h"
#include "base/text/text.h"
#include "ingest/frame_extractor.h"
#include "ingest/photo/photo.h"
#include "ingest/report/capture_report.h"
#include "pipeline/media.h"
#include "pipeline/pipeline_run.h"
#include "pipeline/stage.h"

namespace quor {

namespace fs = std::filesystem;

namespace {

// The frames and cameras of all inputs together.
class Gathered {
 public:
  explicit Gathered(bool shareCameras) : shareCameras_(shareCameras) {}

  // `folder` is the input's own under the frames folder, empty when there is one input only.
  void add(const ExtractionResult& result, const std::string& folder) {
    frames_ += result.frames.size();
    rejected_ += result.rejected;
    if (result.lensSize > 0) extraction_.lensSize = result.lensSize;
    known_ = inputs_++ == 0 || known_ == result.knownIntrinsics ? result.knownIntrinsics : std::nullopt;
    for (const CameraGroup& group : result.groups) addGroup(group, folder);
    for (const auto& [image, position] : result.positions) {
      std::string name = folder.empty() ? "" : folder + "/";
      extraction_.positions.emplace(name += image, position);
    }
  }

  void storeIn(Project& project) const {
    project.extraction = extraction_;
    project.knownIntrinsics = known_;
    project.georeference.reset();  // of the solve that goes with the earlier frames
  }
  size_t frames() const { return frames_; }
  std::string summary() const {
    std::string text = std::to_string(frames_) + " frames";
    if (rejected_ > 0) text += " (" + std::to_string(rejected_) + " blurry rejected)";
    return text;
  }

 private:
  void addGroup(const CameraGroup& group, const std::string& folder) {
    ImageGroup placed = group;
    if (!folder.empty()) {
      placed.name = folder + " " + group.name;
      for (std::string& image : placed.images) image.insert(0, folder + "/");
    }
    for (size_t i = 0; shareCameras_ && i < signatures_.size(); ++i) {
      ImageGroup& earlier = extraction_.groups[i];
      if (signatures_[i] == group.signature && earlier.cameraModel == placed.cameraModel &&
          earlier.cameraParams == placed.cameraParams && earlier.usesFisheyeMask == placed.usesFisheyeMask) {
        earlier.images.insert(earlier.images.end(), placed.images.begin(), placed.images.end());
        return;
      }
    }
    extraction_.groups.push_back(std::move(placed));
    signatures_.push_back(group.signature);
  }

  const bool shareCameras_;
  Extraction extraction_;
  std::vector<std::string> signatures_;
  std::optional<std::array<double, 4>> known_;
  size_t inputs_ = 0, frames_ = 0, rejected_ = 0;
};

// The record is saved before the frames appear: a record without frames says that the stage has to run again, frames
// with an older record would be solved with the wrong cameras.
void replaceFrames(const Project& project, const fs::path& fresh) {
  removeInOneAct(project.solvedFolder());  // its cameras are those of the earlier frames
  removeInOneAct(project.framesFolder());
  project.save();
  std::error_code error;
  fs::rename(fresh, project.framesFolder(), error);
  if (error) {
    throw std::runtime_error("Cannot move the frames to " + toUtf8(project.framesFolder()) + ": " + error.message());
  }
}

void requireInputs(const Project& project) {
  if (project.inputs.empty()) throw std::runtime_error("The project has no input media.");
  for (const InputSource& input : project.inputs) {
    std::error_code ignored;
    if (fs::exists(fromUtf8(input.path), ignored)) continue;
    throw std::runtime_error("The project's input " + input.path +
                             " is no longer there. Put it back, or start a new project from where it is now.");
  }
}

}  // namespace

void prepareMedia() {
  registerImageDecoders();
}

void detectVideoKinds(std::vector<InputSource>& inputs) {
  for (InputSource& input : inputs) {
    if (input.kind == InputKind::Video) input.kind = detectVideoKind(fromUtf8(input.path));
  }
}

StageResult prepareFrames(Project& project, const StageContext& context) {
  requireInputs(project);
  project.ensureLayout();
  const StagingFolder partial(project.unfinishedFramesFolder());
  removeInOneAct(partial.path());  // of a run that was killed
  FrameExtractor extractor(context.log, context.tools.ffmpeg, [&] { return context.run.mustEnd(); });
  Gathered gathered(project.sparse.singleCamera);
  std::vector<CaptureReport> reports;
  const size_t count = project.inputs.size();
  for (size_t i = 0; i < count; ++i) {
    const InputSource& input = project.inputs[i];
    const std::string folder = count > 1 ? formatText("s%02zu", i + 1) : std::string();
    const auto progress = [&](const std::string& message, float fraction) {
      const float whole = fraction < 0 ? fraction : (static_cast<float>(i) + fraction) / static_cast<float>(count);
      context.report(
          {.state = StageState::Running, .message = message, .fraction = whole, .part = static_cast<int32_t>(i) + 1});
    };
    context.log.info("Preparing frames from " + input.path);
    progress("Preparing frames from " + input.path, count > 1 ? 0.0f : -1.0f);
    const ExtractionResult result =
        extractor.extract(fromUtf8(input.path), input.kind, project.ingest, partial.path() / folder, progress);
    gathered.add(result, folder);
    reports.push_back(reportCapture(result, input.kind, [&] { return context.run.mustEnd(); }));
    for (const Finding& finding : reports.back().findings) context.log.info(finding.text);
  }
  if (context.run.mustEnd()) throw Cancelled();

  gathered.storeIn(project);
  replaceFrames(project, partial.path());
  try {
    saveCaptureReport(project.frameReportFile(), reports);
  } catch (const std::runtime_error& error) {
    context.log.warning(error.what());  // the frames are what counts
  }
  return {gathered.summary(), {}};
}

}  // namespace quor
