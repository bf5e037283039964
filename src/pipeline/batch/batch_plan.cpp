#include "pipeline/batch/batch_plan.h"

#include <algorithm>
#include <stdexcept>

#include "base/files/paths.h"
#include "base/files/staging_folder.h"
#include "base/text/text.h"
#include "colmap/model.h"
#include "gs/files/checkpoint.h"
#include "pipeline/intake.h"

namespace quor {

namespace fs = std::filesystem;

namespace {

Project describeItem(const BatchItem& item, const fs::path& destination) {
  Project project = item.colmapImport.empty() ? Project::describe(item.sources, destination)
                                              : Project::describeDataset(fromUtf8(item.colmapImport), destination);
  project.takeSettings(item);
  return project;
}

bool samePlace(const fs::path& a, const fs::path& b) {
  std::error_code ignored;
  return a.lexically_normal() == b.lexically_normal() || fs::equivalent(a, b, ignored);
}

bool sameSources(const Project& a, const Project& b) {
  const auto same = [](const InputSource& x, const InputSource& y) {
    return x.kind == y.kind && samePlace(fromUtf8(x.path), fromUtf8(y.path));
  };
  const bool sameDataset =
      a.externalDataset == b.externalDataset || samePlace(fromUtf8(a.externalDataset), fromUtf8(b.externalDataset));
  return sameDataset && std::ranges::equal(a.inputs, b.inputs, same);
}

std::optional<Project> loadIfThere(const fs::path& root) {
  try {
    return Project::load(root);
  } catch (const std::exception&) {
    return std::nullopt;
  }
}

// Whether `project` can be built at `root` without losing files that the user may want to keep.
bool isFree(const fs::path& root, const Project& project) {
  std::error_code error;
  if (!fs::exists(fs::symlink_status(root, error))) return true;
  if (fs::is_empty(root, error) && fs::is_directory(root, error)) return true;
  const std::optional<Project> there = loadIfThere(root);
  return there && sameSources(*there, project);
}

// Whether one of the first `others` items, but not `index`, has that folder.
bool taken(const Batch& batch, size_t index, const fs::path& root, size_t others) {
  for (size_t i = 0; i < others; ++i) {
    const fs::path& other = batch.items[i].projectRoot;
    if (i != index && !other.empty() && samePlace(other, root)) return true;
  }
  return false;
}

fs::path chooseFolder(const Batch& batch, size_t index, const Project& project) {
  for (int number = 1;; ++number) {
    fs::path root = project.root;
    if (number > 1) root += "_" + std::to_string(number);
    if (!taken(batch, index, root, batch.items.size()) && isFree(root, project)) return root;
  }
}

bool hasFrames(const Project& project) {
  std::error_code error;
  for (fs::recursive_directory_iterator it(project.framesFolder(), error), end; !error && it != end;
       it.increment(error)) {
    std::error_code ignored;
    if (it->is_regular_file(ignored) && isImageFile(it->path())) return true;
  }
  return false;
}

nlohmann::ordered_json settingsOf(const Project& project) {
  nlohmann::ordered_json json;
  toJson(json, project.ingest, project.sparse, project.training);
  return json;
}

Stage firstStage(const Project& now, const Project& earlier, bool failed) {
  if (!now.externalDataset.empty()) return Stage::Train;
  const auto before = settingsOf(earlier);
  const auto after = settingsOf(now);
  if (before["ingest"] != after["ingest"] || earlier.sparse.singleCamera != now.sparse.singleCamera) {
    return Stage::Frames;
  }
  const bool solved = !gs::colmap::findModelDir(now.solvedFolder()).empty();
  if (!hasFrames(now) || (failed && !solved)) return Stage::Frames;
  return solved && before["sparse"] == after["sparse"] ? Stage::Train : Stage::Sparse;
}

bool sceneIsThere(const Project& project) {
  std::error_code ignored;
  return !project.training.exportPLY || fs::is_regular_file(project.sceneFile(), ignored);
}

void planTraining(BatchPlan& plan, const Project& earlier, bool failed) {
  gs::CheckpointHeader header;
  try {
    header = gs::readCheckpointHeader(plan.project.checkpointFile());
  } catch (const std::exception&) {
    return;  // no checkpoint that can be used
  }
  const TrainingSettings& training = plan.project.training;
  if (header.technique != training.technique) return;
  if (static_cast<int64_t>(header.step) < std::max(training.iterations, 1)) {
    plan.resume = true;
    plan.found = formatText("going on from step %u of its checkpoint", header.step);
  } else if (!failed && sceneIsThere(plan.project) &&
             settingsOf(earlier)["training"] == settingsOf(plan.project)["training"]) {
    plan.finishedSplats = header.count;
    plan.found = "its scene was complete already";
  }
}

}  // namespace

BatchPlan planItem(const Batch& batch, size_t index) {
  const BatchItem& item = batch.items[index];
  BatchPlan plan;
  plan.project = describeItem(item, batch.destination);
  plan.from = item.colmapImport.empty() ? Stage::Frames : Stage::Train;
  // Of items that record one folder, because they were copied by hand, the first keeps it.
  if (item.projectRoot.empty() || taken(batch, index, item.projectRoot, index)) {
    plan.project.root = chooseFolder(batch, index, plan.project);
    return plan;
  }
  plan.project.root = item.projectRoot;
  const std::optional<Project> earlier = loadIfThere(item.projectRoot);
  if (!earlier || !sameSources(*earlier, plan.project)) return plan;

  const bool failed = item.state == ItemState::Failed;
  plan.from = firstStage(plan.project, *earlier, failed);
  if (plan.from == Stage::Frames) return plan;
  plan.project.createdAt = earlier->createdAt;
  plan.project.knownIntrinsics = earlier->knownIntrinsics;
  plan.project.extraction = earlier->extraction;
  if (plan.from == Stage::Sparse) {
    plan.found = "its frames are ready, going on with the cameras";
    return plan;
  }
  if (item.colmapImport.empty()) plan.found = "its cameras are solved, going on with training";
  planTraining(plan, *earlier, failed);
  return plan;
}

void preparePlan(const BatchPlan& plan) {
  const Project& project = plan.project;
  if (plan.from == Stage::Frames) {
    // Before anything is moved that could not be made again.
    for (const InputSource& input : project.inputs) classifyExisting(input.path);
    removeInOneAct(project.framesFolder());
  }
  if (plan.from != Stage::Train) removeInOneAct(project.solvedFolder());
  // It is of other cameras, or of settings that project.json will no longer tell.
  const bool continues = plan.resume || project.training.continueFromCheckpoint;
  std::error_code error;
  if (plan.from != Stage::Train || !continues) fs::remove(project.checkpointFile(), error);
  if (error) throw std::runtime_error("Cannot remove " + toUtf8(project.checkpointFile()) + ": " + error.message());
  project.ensureLayout();
  project.save();
}

}  // namespace quor
