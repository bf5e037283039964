#include <algorithm>
#include <optional>
#include <stdexcept>

#include "base/files/paths.h"
#include "base/text/text.h"
#include "colmap/model.h"
#include "sfm/extract/fisheye_scale.h"
#include "sfm/map/crop.h"
#include "sfm/solve_context.h"

namespace quor {
namespace {

namespace fs = std::filesystem;

constexpr float kUndistortionBegins = 0.93f;

void addCrop(ColmapStep& step, const Crop& crop) {
  if (crop.whole()) return;
  const auto add = [&](const char* option, double value) {
    step.arguments.insert(step.arguments.end(), {option, formatText("%.6f", value)});
  };
  add("--roi_min_x", crop.minX);
  add("--roi_max_x", crop.maxX);
  add("--roi_min_y", crop.minY);
  add("--roi_max_y", crop.maxY);
}

// How large the pinhole image is against the frame, at the frame's own focal length.
void addScale(ColmapStep& step, const gs::colmap::Model& model, const Crop& crop) {
  std::optional<double> scale;
  for (const auto& [id, camera] : model.cameras) {
    if (const auto own = fisheyeScale(camera)) scale = std::min(*own, scale.value_or(*own));
  }
  if (scale) {
    const std::string value = formatText("%.6f", *scale);
    step.arguments.insert(step.arguments.end(), {"--min_scale", value, "--max_scale", value});
  } else if (!crop.whole()) {
    // Otherwise COLMAP widens the cropped image until it shows the whole frame again.
    step.arguments.insert(step.arguments.end(), {"--max_scale", "1"});
  }
}

// COLMAP's scripts for a dense reconstruction, which this program does not do.
void removeScripts(const fs::path& dataset) {
  std::error_code ignored;
  for (const fs::path& folder : {dataset, dataset / "stereo"}) {
    for (const char* name : {"run-colmap-geometric.sh", "run-colmap-photometric.sh"})
      fs::remove(folder / name, ignored);
  }
}

// COLMAP can report success without having written everything, for example when the disk is full.
void checkDataset(const fs::path& dataset, size_t expected) {
  gs::colmap::Model model;
  try {
    model = gs::colmap::loadModel(dataset / "sparse", false);
  } catch (const std::exception& e) {
    throw std::runtime_error(std::string("COLMAP ended without a model of the undistorted images (") + e.what() +
                             "). Is the disk full?");
  }
  size_t missing = 0;
  for (const gs::colmap::Image& image : model.images) {
    std::error_code error;
    const auto size = fs::file_size(dataset / "images" / fromUtf8(image.name), error);
    if (error || size == 0) ++missing;
  }
  if (model.images.size() < expected) missing += expected - model.images.size();
  if (missing > 0) {
    throw std::runtime_error(
        formatText("COLMAP left out %zu of %zu images when it undistorted them. Is the disk full?", missing, expected));
  }
}

void logCameras(const SolveContext& solve) {
  const gs::colmap::Model model = gs::colmap::loadModel(solve.files.unfinished / "sparse", false);
  for (const auto& [id, camera] : model.cameras) {
    double fx = 0, fy = 0, cx = 0, cy = 0;
    if (!gs::colmap::intrinsics(camera, fx, fy, cx, cy)) continue;
    solve.log.info(formatText("  undistorted to %llu x %llu pixels, focal length %.1f",
                              static_cast<unsigned long long>(camera.width),
                              static_cast<unsigned long long>(camera.height), fx));
  }
}

}  // namespace

void undistortImages(const SolveContext& solve, const fs::path& folder) {
  const gs::colmap::Model model = gs::colmap::loadModel(folder, false);
  solve.progress.begin("Undistorting images", kUndistortionBegins, 1);
  ColmapStep step;
  step.command = "image_undistorter";
  step.arguments = {"--image_path",  toUtf8(solve.files.frames),     "--input_path",  toUtf8(folder),
                    "--output_path", toUtf8(solve.files.unfinished), "--output_type", "COLMAP"};
  // JPEG files are otherwise written at a quality that costs training detail; older versions have no say in it.
  addTuning(step, solve.colmap, "jpeg_quality", "95");
  const Crop crop = frameCrop(solve.project.ingest);
  for (const std::string& message : crop.messages) solve.log.info(message);
  addCrop(step, crop);
  addScale(step, model, crop);
  std::error_code ignored;
  fs::create_directories(solve.files.unfinished, ignored);
  solve.run(step, countedFraction);

  removeScripts(solve.files.unfinished);
  checkDataset(solve.files.unfinished, model.images.size());
  logCameras(solve);
}

}  // namespace quor
