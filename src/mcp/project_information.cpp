#include "mcp/project_information.h"

#include <algorithm>
#include <cmath>
#include <fstream>

#include "base/files/paths.h"
#include "gs/files/checkpoint.h"
#include "gs/files/ply_header.h"
#include "pipeline/project_contents.h"
#include "pipeline/result_document.h"
#include "project/camera_report.h"
#include "project/project.h"

namespace quor::mcp {

namespace fs = std::filesystem;

namespace {

constexpr size_t kMaxProjects = 100;
constexpr size_t kMaxFolders = 20000;
constexpr size_t kMaxDeep = 8;

bool isFile(const fs::path& path) {
  std::error_code ignored;
  return fs::is_regular_file(path, ignored);
}

void addScene(const Project& project, Document& document) {
  if (!isFile(project.sceneFile())) return;
  try {
    std::ifstream file(project.sceneFile(), std::ios::binary);
    document["splats"] = gs::readPlyHeader(file, toUtf8(project.sceneFile())).vertexCount;
  } catch (const std::exception&) {
  }
  document["ply"] = toUtf8(project.sceneFile());
  if (isFile(project.sceneSplatFile())) document["splat"] = toUtf8(project.sceneSplatFile());
}

void addCheckpoint(const Project& project, Document& document) {
  try {
    const gs::CheckpointHeader header = gs::readCheckpointHeader(project.checkpointFile());
    document["checkpoint"] = toUtf8(project.checkpointFile());
    document["checkpoint_step"] = header.step;
    document["checkpoint_technique"] = techniqueName(header.technique);
  } catch (const std::exception&) {
  }
}

// To the digits that the training log has.
double rounded(double value, double steps) {
  return std::round(value * steps) / steps;
}

void addTraining(const Project& project, Document& document) {
  if (isFile(project.trainingLog())) document["training_log"] = toUtf8(project.trainingLog());
  if (const auto quality = loadQuality(project)) {
    document["held-out"] = {{"PSNR", rounded(quality->psnr, 1e2)}, {"SSIM", rounded(quality->ssim, 1e4)}};
  }
}

void walk(const fs::path& folder, size_t depth, size_t& folders, FoundProjects& found) {
  if (Project::isProject(folder)) {
    found.complete = found.complete && found.roots.size() < kMaxProjects;
    if (found.roots.size() < kMaxProjects) found.roots.push_back(folder);
    return;
  }
  std::error_code error;
  for (fs::directory_iterator it(folder, error), end; !error && it != end; it.increment(error)) {
    std::error_code unreadable;
    if (it->symlink_status(unreadable).type() != fs::file_type::directory) continue;
    if (toUtf8(it->path().filename()).starts_with('.')) continue;
    if (depth == kMaxDeep || ++folders > kMaxFolders) {
      found.complete = false;
      return;
    }
    walk(it->path(), depth + 1, folders, found);
  }
}

}  // namespace

Document projectInformation(const fs::path& root) {
  const Project project = Project::load(root);
  Document document;
  document["project"] = toUtf8(root);
  document["name"] = project.name;
  document["frames"] = countFrames(project);
  const size_t cameras = countCameras(project);
  document["has_reconstruction"] = cameras > 0;
  document["registered_images"] = cameras;
  document["iterations"] = project.training.iterations;
  document["technique"] = techniqueName(project.training.technique);
  Document& inputs = document["inputs"] = Document::array();
  for (const InputSource& input : project.inputs) {
    inputs.push_back({{"path", input.path}, {"kind", kindName(input.kind)}});
  }
  if (!project.externalDataset.empty()) document["external_dataset"] = project.externalDataset;
  if (const auto cameras = CameraReport::load(project)) {
    document["cameras"] = {
        {"verdict", trustName(cameras->trust)}, {"summary", cameras->summary}, {"advice", cameras->advice}};
  }
  addScene(project, document);
  addCheckpoint(project, document);
  addTraining(project, document);
  return document;
}

FoundProjects findProjects(const fs::path& folder) {
  FoundProjects found;
  size_t folders = 0;
  walk(folder, 0, folders, found);
  std::ranges::sort(found.roots, {}, [](const fs::path& root) { return toUtf8(root); });
  return found;
}

}  // namespace quor::mcp
