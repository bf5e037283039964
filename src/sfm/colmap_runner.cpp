#include "sfm/colmap_runner.h"

#include <chrono>
#include <stdexcept>

#include "base/failures.h"
#include "base/files/staging_folder.h"
#include "base/process/tool_places.h"
#include "base/text/time_text.h"
#include "colmap/model.h"
#include "sfm/check/coverage.h"
#include "sfm/extract/camera_groups.h"
#include "sfm/extract/fisheye_mask.h"
#include "sfm/georeference/georeference.h"
#include "sfm/retry/placing.h"
#include "sfm/reuse/feature_record.h"
#include "sfm/solve_context.h"

namespace quor {
namespace {

constexpr size_t kFewestImages = 3;

void requireImages(size_t count) {
  if (count == 0) throw std::runtime_error("There are no frames to solve. Run the Frames stage first.");
  if (count < kFewestImages) throw std::runtime_error("COLMAP needs at least 3 images.");
}

size_t countImages(const std::vector<ImageGroup>& groups) {
  size_t count = 0;
  for (const ImageGroup& group : groups) count += group.images.size();
  return count;
}

}  // namespace

ColmapRunner::ColmapRunner(std::optional<ToolLocation> colmap, LogStore& log, std::function<bool()> cancelled,
                           gs::VulkanContext* gpu)
    : log_(log), cancelled_(std::move(cancelled)), gpu_(gpu) {
  if (colmap) colmap_.emplace(colmap->executable, log_, cancelled_);
}

ColmapRunner::Result ColmapRunner::run(Project& project, const SolveProgress::Report& report) {
  if (!colmap_) {
    throw std::runtime_error(
        "COLMAP was not found. Set COLMAP's folder in Settings, name it with --colmap, or put colmap on PATH. " +
        colmapAdvice());
  }
  const std::vector<std::string> frames = frameNames(project);
  requireImages(frames.size());
  const std::vector<ImageGroup> groups = cameraGroups(project, frames, log_);
  requireImages(countImages(groups));
  colmap_->identify();

  const ColmapWorkspace files(project);
  files.clear();
  const StagingFolder unfinished(files.unfinished);
  writeMask(project);
  ColmapOutput output(log_, files.log);
  output.take("==== " + formatLocalTime(wallClockSeconds(), "%Y-%m-%d %H:%M:%S") + "  " + colmap_->version());
  SolveProgress progress(report);
  const SolveContext solve{project, files, *colmap_, output, log_, progress, countImages(groups), gpu_, cancelled_};

  const auto start = std::chrono::steady_clock::now();
  const auto seconds = [&] { return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count(); };
  FeatureRecord record(solve, groups);
  record.keepWhatHolds();
  extractFeatures(solve, groups);
  record.saveFeatures();
  const double extracted = seconds();
  record.saveMatches(matchFeatures(solve));
  const double matched = seconds();
  PlacedCameras placed = placeCameras(solve, groups, hasFixedIntrinsics(groups), matched);
  const double solved = seconds();
  if (const auto coverage = coverageOf(gs::colmap::loadModel(placed.folder, true))) {
    writePng(files.coverage, drawCoverage(*coverage));
  }
  undistortImages(solve, placed.folder);
  placeInWorld(project, files);
  placed.report.seconds = {extracted, matched - extracted, solved - matched, seconds() - solved};
  if (cancelled_()) throw Cancelled();
  placed.report.save(project);
  // A record without a dataset says nothing; a dataset with the record of an earlier one would lie elsewhere.
  project.save();
  files.finish();
  return {std::move(placed.report), files.undistorted};
}

void ColmapRunner::placeInWorld(Project& project, const ColmapWorkspace& files) {
  project.georeference.reset();
  if (!project.sparse.georeference) return;
  const std::filesystem::path model = files.unfinished / "sparse";
  const WorldFrame frame = findWorldFrame(gs::colmap::loadModel(model, false).images, project.extraction.positions);
  for (const std::string& message : frame.messages) log_.info(message);
  moveModel(model, frame.worldFromSolve);
  project.georeference = frame.georeference;
}

// The solve does without a mask that cannot be written: there will only be a few more wrong features.
void ColmapRunner::writeMask(const Project& project) {
  const int size = project.extraction.lensSize;
  std::error_code ignored;
  std::filesystem::remove(project.maskFile(), ignored);
  if (size <= 0) return;
  try {
    const Image mask = fisheyeMask(project.ingest, size);
    std::filesystem::create_directories(project.maskFile().parent_path());
    writePng(project.maskFile(), mask);
    log_.info(describeFisheyeMask(project.ingest, mask));
  } catch (const std::exception&) {
    log_.warning("Could not write the fisheye mask — continuing without it.");
  }
}

}  // namespace quor
