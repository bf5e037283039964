// Media to frames: photographs are imported, videos are sampled, all of them into JPEG files that the camera solve and
// the trainer read. One extractor serves one run of the frame stage, on one thread; it uses worker threads of its own.
#pragma once

#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "base/log/log_store.h"
#include "base/process/tool_finder.h"
#include "ingest/ingest_error.h"
#include "project/project.h"

namespace quor {

// Frames that one camera took. `images` are file names in the output folder. `cameraModel` and `cameraParams` are set
// when the source fixes or seeds them, otherwise empty.
struct CameraGroup : ImageGroup {
  // What tells cameras apart: pixel size, EXIF camera, focal length. Groups of different inputs with equal signatures,
  // models and parameters were taken with one camera.
  std::string signature;
};

struct ExtractionResult {
  std::vector<std::filesystem::path> frames;             // in order
  std::vector<CameraGroup> groups;                       // every frame is in exactly one
  int lensSize = 0;                                      // pixels; dual fisheye only
  std::optional<std::array<double, 4>> knownIntrinsics;  // fx, fy, cx, cy of all frames; 360-degree video only
  std::map<std::string, GeoPosition> positions;          // by file name, of photographs that know theirs
  std::map<std::string, std::string> sources;            // the photographs' own names, by file name
  size_t rejected = 0;                                   // blurry frames that were deleted
  size_t unreadable = 0;                                 // images that were skipped
};

// Fraction 0..1, or -1 when unknown. Called on the extracting thread only.
using IngestProgress = std::function<void(const std::string& message, float fraction)>;

class FrameExtractor {
 public:
  // `ffmpeg` is the fall-back decoder, if there is one. `cancelled` may be asked from any thread.
  FrameExtractor(LogStore& log, std::optional<ToolLocation> ffmpeg, std::function<bool()> cancelled);

  // Fills `outputFolder`, which is made when it is missing and should be empty, from one input. Throws IngestError,
  // "Cancelled" too; frames written until then stay.
  ExtractionResult extract(const std::filesystem::path& path, InputKind kind, const IngestSettings& settings,
                           const std::filesystem::path& outputFolder, const IngestProgress& progress);

 private:
  ExtractionResult importImages(const std::filesystem::path& path, const IngestSettings& settings,
                                const std::filesystem::path& outputFolder, const IngestProgress& progress);
  ExtractionResult extractVideo(const std::filesystem::path& path, InputKind kind, const IngestSettings& settings,
                                const std::filesystem::path& outputFolder, const IngestProgress& progress);
  ExtractionResult extractFisheye(const std::filesystem::path& path, const IngestSettings& settings,
                                  const std::filesystem::path& outputFolder, const IngestProgress& progress);

  // Deletes the blurry frames of a video and takes them out of the result.
  void rejectBlurryFrames(ExtractionResult& result, const IngestSettings& settings,
                          const std::filesystem::path& outputFolder, const IngestProgress& progress);

  LogStore& log_;
  std::optional<ToolLocation> ffmpeg_;
  std::function<bool()> cancelled_;
};

// What a video file is: dual fisheye when it holds two square tracks of one size, 360 when its picture is 2:1 and it
// says that it is equirectangular or nothing speaks against it, otherwise an ordinary video (also when it cannot be
// opened: extraction then says why).
InputKind detectVideoKind(const std::filesystem::path& path);

}  // namespace quor
