// The state shared by the steps of one solve, and the steps in their order.
#pragma once

#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include "gpu/device/vulkan_context.h"
#include "project/project.h"
#include "sfm/colmap_program.h"
#include "sfm/colmap_workspace.h"
#include "sfm/solve_progress.h"

namespace quor {

struct SolveContext {
  const Project& project;
  const ColmapWorkspace& files;
  ColmapProgram& colmap;
  ColmapOutput& output;
  LogStore& log;
  SolveProgress& progress;
  size_t images = 0;                 // in all groups
  gs::VulkanContext* gpu = nullptr;  // to match features on, when there is one
  std::function<bool()> cancelled;
  // Offered to every COLMAP command: each takes those options that its help lists. Name without dashes, value.
  std::vector<std::pair<std::string, std::string>> tuning = {};
  bool otherMapper = false;  // than the one that the settings name

  // Runs a step and passes its progress on.
  void run(const ColmapStep& step, const ColmapProgram::LineParser& parse) const {
    colmap.step(step, output, parse, [this](float fraction) { progress.advance(fraction); });
  }
};

// Extracts the features of every group into the database, each group with its own camera. Images that it holds already
// are left as they are.
void extractFeatures(const SolveContext& solve, const std::vector<ImageGroup>& groups);
// What decides how features are found, besides the pictures: the options of COLMAP's command.
std::vector<std::string> extractionOptions(const SolveContext& solve, const ImageGroup& group);
// Whether images can be added to a group of which the database holds some already.
bool canExtend(const SolveContext& solve, const ImageGroup& group);

enum class MatchedBy { OwnMatcher, Colmap };
// Matches the features of the image pairs, verified, into the database. Pairs that it holds already are left as they
// are.
MatchedBy matchFeatures(const SolveContext& solve);
// Who will match, if nothing fails.
MatchedBy plannedMatcher(const SolveContext& solve);

// The stretch of the whole solve's progress that matching takes.
struct MatchingShare {
  float begins, ends;
  float middle() const { return (begins + ends) / 2; }
};
// The same on the solve's GPU and then verified by COLMAP. false when COLMAP has to match, with nothing left in the
// database of an attempt; why is in the log. Throws only when the solve is cancelled or the database cannot be emptied.
bool matchFeaturesOnGpu(const SolveContext& solve, Matcher matcher, MatchingShare share);
bool canMatchOnGpu(const SolveContext& solve, Matcher matcher);
// COLMAP's command that matches the pairs of a list, where the database holds no matches of theirs, and verifies them.
ColmapStep pairListStep(const SolveContext& solve, const std::filesystem::path& list);

struct SparseModel {
  std::filesystem::path folder;
  size_t registered = 0;
};
// The mapper has placed no image.
struct NoImagePlaced : std::runtime_error {
  using std::runtime_error::runtime_error;
};
// Every model that the mapper makes of the matches, largest first, each with images. Throws NoImagePlaced.
// With fixed intrinsics the mapper leaves the cameras alone.
std::vector<SparseModel> mapImages(const SolveContext& solve, bool fixedIntrinsics);

// Makes a model of a rig's images rigid: every moment one pose, all its images placed when one is, points and cameras
// adjusted under that constraint. A model of fisheye images is adjusted, too: COLMAP's own adjustment of these can halt
// far from its end. Other models are returned as they are, and so is one that cannot be refined, with a warning.
SparseModel refineModel(const SolveContext& solve, const SparseModel& model, const std::vector<ImageGroup>& groups,
                        bool fixedIntrinsics);

// Writes the frames of a model as a pinhole camera would have taken them, with their model, to the unfinished dataset
// and checks that they are all there.
void undistortImages(const SolveContext& solve, const std::filesystem::path& folder);

// Appends those of the solve's own options that the command takes.
void addTuning(ColmapStep& step, const SolveContext& solve);
// Appends an option and its value when the command accepts one of its spellings, given newest first.
void addOption(ColmapStep& step, ColmapProgram& colmap, const std::vector<std::string>& spellings,
               const std::string& value);
// Appends an option that the command can do without, only when its help lists it.
void addTuning(ColmapStep& step, ColmapProgram& colmap, const std::string& option, const std::string& value);
// As addOption, for the option that asks for the GPU.
void addGpuOption(ColmapStep& step, ColmapProgram& colmap, const std::vector<std::string>& spellings, bool useGpu);

}  // namespace quor
