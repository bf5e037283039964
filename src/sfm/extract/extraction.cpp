#include <algorithm>
#include <stdexcept>

#include "base/files/atomic_file.h"
#include "base/files/paths.h"
#include "base/text/text.h"
#include "sfm/solve_context.h"

namespace quor {
namespace {

constexpr float kExtractionEnds = 0.15f;

// As COLMAP takes them: the shortest text that reads back as the same number.
std::string parameterList(const std::vector<double>& params) {
  std::string text;
  for (const double param : params) text += (text.empty() ? "" : ",") + formatText("%.17g", param);
  return text;
}

std::filesystem::path writeImageList(const SolveContext& solve, const ImageGroup& group, size_t number) {
  const std::filesystem::path path = solve.files.lists / formatText("group%02zu.txt", number);
  AtomicFile file(path);
  for (const std::string& image : group.images) file.stream() << image << '\n';
  file.commit();
  return path;
}

void logIntrinsics(const SolveContext& solve, const ImageGroup& group) {
  std::string text = "  " + group.name;
  if (group.cameraParams.empty()) {
    text += ", intrinsics solved by COLMAP";
  } else {
    text += " intrinsics:";
    for (const double param : group.cameraParams) text += formatText(" %.6g", param);
  }
  solve.log.info(text + " (" + group.cameraModel + ", " + std::to_string(group.images.size()) + " images)");
}

// With one camera for all pictures turned off, each picture of a single source gets its own and, of several, each
// source, which has a folder of its own. What is known of a group's camera holds for all of it.
const char* sharingOption(const SolveContext& solve, const ImageGroup& group) {
  constexpr const char* kPerImage = "ImageReader.single_camera_per_image";
  if (solve.project.sparse.singleCamera) return "--ImageReader.single_camera";
  if (group.cameraParams.empty() && solve.project.inputs.size() == 1) {
    if (solve.colmap.accepts("feature_extractor", kPerImage)) return "--ImageReader.single_camera_per_image";
    solve.log.warning("This COLMAP cannot give every picture a camera of its own; the pictures share one.");
  }
  return "--ImageReader.single_camera_per_folder";
}

ColmapStep extractionStep(const SolveContext& solve, const ImageGroup& group, size_t number) {
  const SparseSettings& settings = solve.project.sparse;
  ColmapStep step;
  step.command = "feature_extractor";
  step.arguments = {"--database_path",
                    toUtf8(solve.files.database),
                    "--image_path",
                    toUtf8(solve.files.frames),
                    "--image_list_path",
                    toUtf8(writeImageList(solve, group, number)),
                    sharingOption(solve, group),
                    "1",
                    "--ImageReader.camera_model",
                    group.cameraModel};
  if (!group.cameraParams.empty()) {
    step.arguments.insert(step.arguments.end(), {"--ImageReader.camera_params", parameterList(group.cameraParams)});
  }
  std::error_code ignored;
  const std::filesystem::path mask = std::filesystem::absolute(solve.project.maskFile());
  if (group.usesFisheyeMask && std::filesystem::is_regular_file(mask, ignored)) {
    solve.log.info("  masking features with " + toUtf8(mask));
    step.arguments.insert(step.arguments.end(), {"--ImageReader.camera_mask_path", toUtf8(mask)});
  }
  addGpuOption(step, solve.colmap, {"FeatureExtraction.use_gpu", "SiftExtraction.use_gpu"}, settings.useGPU);
  addOption(step, solve.colmap, {"FeatureExtraction.max_image_size", "SiftExtraction.max_image_size"},
            std::to_string(std::max(settings.maxImageSize, 1)));
  addOption(step, solve.colmap, {"FeatureExtraction.max_num_features", "SiftExtraction.max_num_features"},
            std::to_string(std::max(settings.maxFeatures, 1)));
  addTuning(step, solve);
  return step;
}

}  // namespace

void addOption(ColmapStep& step, ColmapProgram& colmap, const std::vector<std::string>& spellings,
               const std::string& value) {
  if (const auto name = colmap.option(step.command, spellings)) {
    step.arguments.insert(step.arguments.end(), {*name, value});
  }
}

void addTuning(ColmapStep& step, ColmapProgram& colmap, const std::string& option, const std::string& value) {
  if (colmap.accepts(step.command, option)) step.arguments.insert(step.arguments.end(), {"--" + option, value});
}

void addTuning(ColmapStep& step, const SolveContext& solve) {
  for (const auto& [option, value] : solve.tuning) addTuning(step, solve.colmap, option, value);
}

void addGpuOption(ColmapStep& step, ColmapProgram& colmap, const std::vector<std::string>& spellings, bool useGpu) {
  step.gpuOption = colmap.option(step.command, spellings).value_or("");
  if (!step.gpuOption.empty()) step.arguments.insert(step.arguments.end(), {step.gpuOption, useGpu ? "1" : "0"});
}

void extractFeatures(const SolveContext& solve, const std::vector<ImageGroup>& groups) {
  size_t before = 0;
  for (size_t g = 0; g < groups.size(); ++g) {
    const size_t count = groups[g].images.size();
    const auto share = [&](size_t images) {
      return kExtractionEnds * static_cast<float>(images) / static_cast<float>(solve.images);
    };
    const std::string message = groups.size() == 1 ? formatText("Extracting features (%zu images)", count)
                                                   : formatText("Extracting features (group %zu of %zu, %zu images)",
                                                                g + 1, groups.size(), count);
    solve.progress.begin(message, share(before), share(before + count));
    logIntrinsics(solve, groups[g]);
    solve.run(extractionStep(solve, groups[g], g + 1), countedFraction);
    before += count;
  }
}

}  // namespace quor
