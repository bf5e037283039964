#include <algorithm>

#include "base/failures.h"
#include "base/files/paths.h"
#include "base/text/text.h"
#include "colmap/model_writer.h"
#include "sfm/match/colmap_database.h"
#include "sfm/refine/bundle_adjustment.h"
#include "sfm/solve_context.h"

namespace quor {
namespace {

using namespace refine;
using gs::colmap::Model;
using gs::colmap::Observation;
using gs::colmap::Observations;

bool hasFisheye(const Model& model) {
  return std::ranges::any_of(model.cameras, [](const auto& camera) {
    return gs::colmap::modelName(camera.second.model).ends_with("FISHEYE");
  });
}

class Refinement {
 public:
  Refinement(const SolveContext& solve, const std::filesystem::path& folder, const std::vector<ImageGroup>& groups)
      : solve_(solve), folder_(folder), layout_(groups) {
    rigid_.model = gs::colmap::loadModel(folder, true);
  }

  bool serves() const { return (!layout_.empty() || hasFisheye(rigid_.model)) && canAdjust(rigid_.model); }

  size_t run(bool fixedIntrinsics) {
    rigid_.observations = gs::colmap::loadObservations(folder_, rigid_.model);
    rigid_.freeCameras = !fixedIntrinsics;
    if (!layout_.empty()) {
      solve_.progress.begin("Joining the views of each moment", kRefinementBegins, kRefinementEnds);
      joinMoments();
    }
    mount();
    const AdjustmentSummary summary = adjust(rigid_, solve_.cancelled);
    solve_.log.info(formatText("Cameras adjusted together: mean reprojection error %.2f px, before %.2f px",
                               summary.error, summary.errorBefore));
    store();
    return rigid_.model.images.size();
  }

 private:
  static constexpr float kRefinementBegins = 0.92f;
  static constexpr float kRefinementEnds = 0.93f;

  void joinMoments() {
    std::vector<double> weights;
    for (const Observations& list : rigid_.observations) {
      weights.push_back(static_cast<double>(
          std::ranges::count_if(list, [](const Observation& seen) { return seen.point != Observation::kNoPoint; })));
    }
    fused_ = fuseMoments(rigid_.model, weights, layout_);
    const size_t before = rigid_.model.images.size();
    const Model placed = placeImages();
    const size_t moments = static_cast<size_t>(
        std::ranges::count_if(fused_.moments, [](const std::optional<Pose>& pose) { return pose.has_value(); }));
    solve_.log.info(
        formatText("Rig: %zu images of %zu moments placed as one each, %zu more than before; %zu had been "
                   "placed elsewhere",
                   placed.images.size(), moments, placed.images.size() - before, fused_.contradicting.size()));
    triangulate(placed);
  }

  // Every image of the moments that have a pose, and those without a rig where they were.
  Model placeImages() const {
    Model placed;
    placed.cameras = rigid_.model.cameras;
    ColmapDatabase database(solve_.files.database);
    const std::map<uint32_t, uint32_t> cameras = database.cameras();
    std::map<std::string, const gs::colmap::Image*> solved;
    for (const gs::colmap::Image& image : rigid_.model.images) solved[image.name] = &image;
    for (const DatabaseImage& known : database.images()) {
      const auto own = solved.find(known.name);
      const std::optional<Pose> pose = posedByRig(known.name);
      if (own == solved.end() && !(pose && cameras.contains(known.id) && placed.cameras.contains(cameras.at(known.id))))
        continue;
      gs::colmap::Image image;
      if (own != solved.end()) {
        image = *own->second;
      } else {
        image.id = known.id;
        image.cameraId = cameras.at(known.id);
        image.name = known.name;
      }
      if (pose) setPose(image, *pose);
      placed.images.push_back(std::move(image));
    }
    std::ranges::sort(placed.images, {}, &gs::colmap::Image::name);
    return placed;
  }

  std::optional<Pose> posedByRig(const std::string& image) const {
    const Mount* mount = layout_.find(image);
    if (!mount || !fused_.known[mount->sensor] || !fused_.moments[mount->moment]) return {};
    return fused_.sensors[mount->sensor] * *fused_.moments[mount->moment];
  }

  // COLMAP finds the points of cameras that stay where they are.
  void triangulate(const Model& placed) {
    const std::filesystem::path poses = solve_.files.rig / "poses", points = solve_.files.rig / "points";
    std::filesystem::create_directories(points);
    gs::colmap::writeModel(poses, placed, {}, gs::colmap::Encoding::Binary);
    ColmapStep step;
    step.command = "point_triangulator";
    step.arguments = {"--database_path", toUtf8(solve_.files.database),
                      "--image_path",    toUtf8(solve_.files.frames),
                      "--input_path",    toUtf8(poses),
                      "--output_path",   toUtf8(points)};
    solve_.run(step, countedFraction);
    rigid_.model = gs::colmap::loadModel(points, true);
    rigid_.observations = gs::colmap::loadObservations(points, rigid_.model);
  }

  // Images without a rig are moments of their own, seen by a sensor that is the rig.
  void mount() {
    rigid_.sensors = fused_.sensors;
    rigid_.freeSensors = fused_.estimated;
    const size_t alone = rigid_.sensors.size();
    rigid_.sensors.emplace_back();
    rigid_.freeSensors.push_back(false);
    std::map<size_t, size_t> moments;
    for (const gs::colmap::Image& image : rigid_.model.images) {
      if (!posedByRig(image.name)) {
        rigid_.mounts.push_back({rigid_.moments.size(), alone});
        rigid_.moments.push_back(poseOf(image));
        continue;
      }
      const Mount* own = layout_.find(image.name);
      const auto [place, isNew] = moments.try_emplace(own->moment, rigid_.moments.size());
      if (isNew) rigid_.moments.push_back(*fused_.moments[own->moment]);
      rigid_.mounts.push_back({place->second, own->sensor});
    }
  }

  void store() const {
    gs::colmap::writeModel(folder_, rigid_.model, rigid_.observations, gs::colmap::Encoding::Binary);
  }

  const SolveContext& solve_;
  const std::filesystem::path folder_;
  const RigLayout layout_;
  FusedRig fused_;
  RigidModel rigid_;
};

}  // namespace

SparseModel refineModel(const SolveContext& solve, const SparseModel& model, const std::vector<ImageGroup>& groups,
                        bool fixedIntrinsics) {
  try {
    Refinement refinement(solve, model.folder, groups);
    if (!refinement.serves()) return model;
    return {model.folder, refinement.run(fixedIntrinsics)};
  } catch (const Cancelled&) {
    throw;
  } catch (const std::exception& error) {
    solve.log.warning(std::string("The cameras stay as COLMAP placed them: ") + error.what());
    return model;
  }
}

}  // namespace quor
