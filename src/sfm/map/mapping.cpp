#include <algorithm>
#include <charconv>
#include <stdexcept>

#include "base/files/paths.h"
#include "base/text/text.h"
#include "colmap/model.h"
#include "sfm/solve_context.h"

namespace quor {
namespace {

constexpr float kMappingBegins = 0.75f;
constexpr float kMappingEnds = 0.93f;
constexpr const char* kNoModel =
    "COLMAP could not reconstruct the scene: no images registered. Captures need 60-80% overlap between neighbouring "
    "views and enough texture.";

// "Registering image #12 (34)", "(num_reg_frames=34)" in newer versions: so many images are in the model.
std::optional<float> registeredFraction(std::string_view line, size_t images) {
  line = colmapMessage(line);
  if (!line.starts_with("Registering ") || images == 0) return std::nullopt;
  const size_t bracket = line.rfind('(');
  if (bracket == std::string_view::npos) return std::nullopt;
  const size_t digit = line.find_first_of("0123456789", bracket);
  if (digit == std::string_view::npos) return std::nullopt;
  size_t count = 0;
  std::from_chars(line.data() + digit, line.data() + line.size(), count);
  return static_cast<float>(count) / static_cast<float>(images);
}

void addFixedIntrinsics(ColmapStep& step, const std::string& prefix) {
  for (const char* what : {"ba_refine_focal_length", "ba_refine_principal_point", "ba_refine_extra_params"}) {
    step.arguments.insert(step.arguments.end(), {prefix + what, "0"});
  }
}

ColmapStep mapperStep(const SolveContext& solve, const char* command) {
  ColmapStep step;
  step.command = command;
  step.arguments = {"--database_path", toUtf8(solve.files.database), "--image_path", toUtf8(solve.files.frames),
                    "--output_path",   toUtf8(solve.files.sparse)};
  return step;
}

// COLMAP's defaults adjust all cameras anew whenever the model has grown by a tenth, each time to the last digit. These
// end at the same cameras in less than half the time.
void addFasterBundleAdjustment(ColmapStep& step, ColmapProgram& colmap) {
  addTuning(step, colmap, "Mapper.ba_global_images_ratio", "1.4");
  addTuning(step, colmap, "Mapper.ba_global_frames_ratio", "1.4");  // its name in version 4
  addTuning(step, colmap, "Mapper.ba_global_points_ratio", "1.4");
  addTuning(step, colmap, "Mapper.ba_global_function_tolerance", "1e-6");
  addTuning(step, colmap, "Mapper.ba_local_function_tolerance", "1e-6");
}

ColmapStep globalStep(const SolveContext& solve, bool fixedIntrinsics) {
  if (!fixedIntrinsics && solve.colmap.hasCommand("view_graph_calibrator")) {
    solve.progress.begin("Calibrating cameras", kMappingBegins, kMappingBegins);
    ColmapStep calibrate;
    calibrate.command = "view_graph_calibrator";
    calibrate.arguments = {"--database_path", toUtf8(solve.files.database)};
    solve.run(calibrate, countedFraction);
  }
  solve.progress.begin("Solving cameras with the global mapper", kMappingBegins, kMappingEnds);
  ColmapStep step = mapperStep(solve, "global_mapper");
  addTuning(step, solve.colmap, "GlobalMapper.track_required_tracks_per_view", "50");
  if (fixedIntrinsics) addFixedIntrinsics(step, "--GlobalMapper.");
  return step;
}

ColmapStep incrementalStep(const SolveContext& solve, bool fixedIntrinsics) {
  solve.progress.begin("Solving cameras", kMappingBegins, kMappingEnds);
  ColmapStep step = mapperStep(solve, "mapper");
  addFasterBundleAdjustment(step, solve.colmap);
  addTuning(step, solve);
  if (fixedIntrinsics) addFixedIntrinsics(step, "--Mapper.");
  return step;
}

bool useGlobalMapper(const SolveContext& solve) {
  if ((solve.project.sparse.mapper == MapperKind::Global) == solve.otherMapper) return false;
  if (solve.colmap.hasCommand("global_mapper")) return true;
  solve.log.info("This COLMAP has no global mapper (it arrived in COLMAP 4); using the incremental one.");
  return false;
}

// Largest first, then in the mapper's order; models without images or that cannot be read are left out.
std::vector<SparseModel> readModels(const SolveContext& solve) {
  std::vector<SparseModel> models;
  std::vector<std::filesystem::path> folders = {solve.files.sparse};
  std::error_code ignored;
  for (const auto& entry : std::filesystem::directory_iterator(solve.files.sparse, ignored)) {
    folders.push_back(entry.path());
  }
  std::ranges::sort(folders);
  for (const std::filesystem::path& folder : folders) {
    if (!gs::colmap::hasModel(folder)) continue;
    try {
      models.push_back({folder, gs::colmap::loadModel(folder, false).images.size()});
    } catch (const std::exception& e) {
      solve.log.warning(std::string("COLMAP left a model that cannot be read: ") + e.what());
    }
  }
  std::erase_if(models, [](const SparseModel& model) { return model.registered == 0; });
  std::ranges::stable_sort(models, std::ranges::greater(), &SparseModel::registered);
  return models;
}

}  // namespace

std::vector<SparseModel> mapImages(const SolveContext& solve, bool fixedIntrinsics) {
  const bool global = useGlobalMapper(solve);
  const ColmapStep step = global ? globalStep(solve, fixedIntrinsics) : incrementalStep(solve, fixedIntrinsics);
  const int exitCode = solve.colmap.tryStep(
      step, solve.output, [&](std::string_view line) { return registeredFraction(line, solve.images); },
      [&](float fraction) { solve.progress.advance(fraction); });
  // The mapper also fails when the photographs do not overlap; that gets its own message below.
  if (exitCode != 0 && !solve.output.noModel()) solve.colmap.fail(step, solve.output, exitCode);

  std::vector<SparseModel> models = readModels(solve);
  if (models.empty()) throw NoImagePlaced(kNoModel);
  std::string text = formatText("Registered %zu of %zu images", models.front().registered, solve.images);
  if (models.size() > 1) text += formatText(" (largest of %zu models)", models.size());
  solve.log.info(text);
  if (2 * models.front().registered < solve.images) {
    solve.log.warning("Fewer than half the images registered; the capture may lack overlap.");
  }
  return models;
}

}  // namespace quor
