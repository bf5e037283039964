#include <algorithm>
#include <map>
#include <optional>
#include <stdexcept>

#include "base/files/atomic_file.h"
#include "base/files/paths.h"
#include "base/text/text.h"
#include "sfm/match/colmap_database.h"
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

std::filesystem::path writeImageList(const SolveContext& solve, const std::vector<std::string>& images, size_t number) {
  std::filesystem::path path = solve.files.lists / formatText("group%02zu.txt", number);
  AtomicFile file(path);
  for (const std::string& image : images) file.stream() << image << '\n';
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

const std::vector<std::string> kGpuOption = {"FeatureExtraction.use_gpu", "SiftExtraction.use_gpu"};
constexpr const char* kPerImage = "ImageReader.single_camera_per_image";
constexpr const char* kKnownCamera = "ImageReader.existing_camera_id";

// With one camera for all pictures turned off, each picture of a single source gets its own and, of several, each
// source, which has a folder of its own. What is known of a group's camera holds for all of it.
const char* sharingOption(const SolveContext& solve, const ImageGroup& group) {
  if (solve.project.sparse.singleCamera) return "--ImageReader.single_camera";
  if (group.cameraParams.empty() && solve.project.inputs.size() == 1) {
    if (solve.colmap.accepts("feature_extractor", kPerImage)) return "--ImageReader.single_camera_per_image";
  }
  return "--ImageReader.single_camera_per_folder";
}

bool hasMask(const SolveContext& solve, const ImageGroup& group) {
  std::error_code ignored;
  return group.usesFisheyeMask && std::filesystem::is_regular_file(solve.project.maskFile(), ignored);
}

// Images and their cameras that the database holds already.
std::map<std::string, uint32_t> extractedImages(const SolveContext& solve) {
  std::map<std::string, uint32_t> extracted;
  if (!std::filesystem::exists(solve.files.database)) return extracted;
  ColmapDatabase database(solve.files.database);
  const std::map<uint32_t, uint32_t> cameras = database.cameras();
  for (const DatabaseImage& image : database.images()) extracted[image.name] = cameras.at(image.id);
  return extracted;
}

void logGroup(const SolveContext& solve, const ImageGroup& group) {
  logIntrinsics(solve, group);
  if (hasMask(solve, group)) {
    solve.log.info("  masking features with " + toUtf8(std::filesystem::absolute(solve.project.maskFile())));
  }
  const bool perImage =
      !solve.project.sparse.singleCamera && group.cameraParams.empty() && solve.project.inputs.size() == 1;
  if (perImage && !solve.colmap.accepts("feature_extractor", kPerImage)) {
    solve.log.warning("This COLMAP cannot give every picture a camera of its own; the pictures share one.");
  }
}

ColmapStep extractionStep(const SolveContext& solve, const ImageGroup& group, const std::vector<std::string>& images,
                          std::optional<uint32_t> camera, size_t number) {
  ColmapStep step;
  step.command = "feature_extractor";
  step.arguments = {"--database_path",   toUtf8(solve.files.database),
                    "--image_path",      toUtf8(solve.files.frames),
                    "--image_list_path", toUtf8(writeImageList(solve, images, number))};
  const std::vector<std::string> options = extractionOptions(solve, group);
  step.arguments.insert(step.arguments.end(), options.begin(), options.end());
  step.gpuOption = solve.colmap.option(step.command, kGpuOption).value_or("");
  if (camera && solve.project.sparse.singleCamera) addTuning(step, solve.colmap, kKnownCamera, std::to_string(*camera));
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

std::vector<std::string> extractionOptions(const SolveContext& solve, const ImageGroup& group) {
  const SparseSettings& settings = solve.project.sparse;
  ColmapStep step;
  step.command = "feature_extractor";
  step.arguments = {sharingOption(solve, group), "1", "--ImageReader.camera_model", group.cameraModel};
  if (!group.cameraParams.empty()) {
    step.arguments.insert(step.arguments.end(), {"--ImageReader.camera_params", parameterList(group.cameraParams)});
  }
  if (hasMask(solve, group)) {
    step.arguments.insert(step.arguments.end(), {"--ImageReader.camera_mask_path",
                                                 toUtf8(std::filesystem::absolute(solve.project.maskFile()))});
  }
  addGpuOption(step, solve.colmap, kGpuOption, settings.useGPU);
  addOption(step, solve.colmap, {"FeatureExtraction.max_image_size", "SiftExtraction.max_image_size"},
            std::to_string(std::max(settings.maxImageSize, 1)));
  addOption(step, solve.colmap, {"FeatureExtraction.max_num_features", "SiftExtraction.max_num_features"},
            std::to_string(std::max(settings.maxFeatures, 1)));
  addTuning(step, solve);
  return step.arguments;
}

bool canExtend(const SolveContext& solve, const ImageGroup& group) {
  const std::string_view sharing = sharingOption(solve, group);
  if (sharing == "--ImageReader.single_camera_per_image") return true;
  return sharing == "--ImageReader.single_camera" && solve.colmap.accepts("feature_extractor", kKnownCamera);
}

void extractFeatures(const SolveContext& solve, const std::vector<ImageGroup>& groups) {
  const std::map<std::string, uint32_t> extracted = extractedImages(solve);
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
    before += count;
    std::vector<std::string> missing;
    std::optional<uint32_t> camera;
    for (const std::string& image : groups[g].images) {
      const auto found = extracted.find(image);
      if (found == extracted.end()) {
        missing.push_back(image);
      } else {
        camera = found->second;
      }
    }
    if (missing.empty()) continue;
    logGroup(solve, groups[g]);
    solve.run(extractionStep(solve, groups[g], missing, camera, g + 1), countedFraction);
  }
}

}  // namespace quor
