#include "project/project.h"

#include <algorithm>
#include <stdexcept>

#include "base/files/paths.h"
#include "base/text/time_text.h"
#include "colmap/model.h"
#include "project/classify.h"

namespace quor {
namespace {

namespace fs = std::filesystem;

// "photos/" and "photos\" name the folder itself, not something inside it. "E:" would be wherever that drive's current
// folder is.
fs::path withoutTrailingSeparators(std::string text) {
  while (text.size() > 1 && (text.back() == '/' || text.back() == '\\') && text[text.size() - 2] != ':')
    text.pop_back();
  return fromUtf8(text);
}

// What a memory card brings lies at the root of a drive, which has no name but its letter.
std::string nameOf(const fs::path& path, bool isFile) {
  if (path.has_filename()) return toUtf8(isFile ? path.stem() : path.filename());
  const std::string drive = toUtf8(path.root_name());
  return drive.substr(0, drive.find(':'));
}

// A project must still find its media from another working directory. A path that is absolute already stays as the user
// wrote it.
fs::path storedPath(const fs::path& path) {
  return path.is_absolute() ? path : absolutePath(toUtf8(path));
}

bool isFile(const InputSource& input, const fs::path& path) {
  std::error_code ignored;
  if (fs::is_directory(path, ignored)) return false;
  return fs::is_regular_file(path, ignored) || input.kind != InputKind::Images;
}

Project newProject(const fs::path& source, bool sourceIsFile, const fs::path& outDir) {
  const fs::path path = absolutePath(toUtf8(withoutTrailingSeparators(toUtf8(source))));
  Project project;
  project.name = nameOf(path, sourceIsFile);
  project.createdAt = formatUtcTime(wallClockSeconds(), "%Y-%m-%dT%H:%M:%SZ");
  project.root = (outDir.empty() ? path.parent_path() : storedPath(outDir)) / fromUtf8(project.name + "_ombrelux");
  return project;
}

void makeFolder(const fs::path& folder) {
  std::error_code error;
  fs::create_directories(folder, error);
  if (error) throw std::runtime_error("Cannot make the folder " + toUtf8(folder) + ": " + error.message() + ".");
}

bool allOfKind(const std::vector<InputSource>& inputs, InputKind kind) {
  return std::ranges::all_of(inputs, [&](const InputSource& input) { return input.kind == kind; });
}

}  // namespace

const char* kindName(InputKind kind) {
  switch (kind) {
    case InputKind::Video:
      return "video";
    case InputKind::Video360:
      return "video360";
    case InputKind::DualFisheye:
      return "dualfisheye";
    default:  // an unknown kind degrades to a folder of images
      return "images";
  }
}

const char* kindLabel(InputKind kind) {
  switch (kind) {
    case InputKind::Video:
      return "Video";
    case InputKind::Video360:
      return "360 video";
    case InputKind::DualFisheye:
      return "Dual-fisheye 360°";
    default:
      return "Image folder";
  }
}

InputKind parseKind(const std::string& word) {
  for (const InputKind kind : {InputKind::Video, InputKind::Video360, InputKind::DualFisheye}) {
    if (word == kindName(kind)) return kind;
  }
  return InputKind::Images;
}

SparseSettings suggestedSettings(const std::vector<InputSource>& inputs) {
  SparseSettings settings;
  settings.matcher = allOfKind(inputs, InputKind::Images) ? Matcher::Exhaustive : Matcher::Sequential;
  settings.singleCamera = true;
  if (allOfKind(inputs, InputKind::Video360)) settings.cameraModel = "PINHOLE";
  if (allOfKind(inputs, InputKind::DualFisheye)) settings.cameraModel = "OPENCV_FISHEYE";
  return settings;
}

void followSuggestion(const SparseSettings& before, const SparseSettings& now, SparseSettings& settings) {
  if (settings.matcher == before.matcher) settings.matcher = now.matcher;
  if (settings.cameraModel == before.cameraModel) settings.cameraModel = now.cameraModel;
}

Project Project::describe(const std::vector<InputSource>& inputs, const fs::path& outDir) {
  if (inputs.empty()) throw std::runtime_error("A project needs at least one input");
  const fs::path first = fromUtf8(inputs.front().path);
  Project project = newProject(first, isFile(inputs.front(), first), outDir);
  for (const InputSource& input : inputs) {
    project.inputs.push_back({toUtf8(storedPath(fromUtf8(input.path))), input.kind});
  }
  project.sparse = suggestedSettings(inputs);
  project.ingest.viewsFollowSphere = true;
  project.sparse.pairs = PairChoice::Likely;
  return project;
}

Project Project::create(const std::vector<InputSource>& inputs, const fs::path& outDir) {
  Project project = describe(inputs, outDir);
  project.ensureLayout();
  project.save();
  return project;
}

Project Project::fromDataset(const fs::path& dataset, const fs::path& outDir) {
  Project project = describeDataset(dataset, outDir);
  project.ensureLayout();
  project.save();
  return project;
}

Project Project::describeDataset(const fs::path& dataset, const fs::path& outDir) {
  if (gs::colmap::findModelDir(dataset).empty()) {
    throw std::runtime_error("No COLMAP model in " + toUtf8(dataset) +
                             ". Choose the folder holding images/ and sparse/0 (not sparse/0 itself).");
  }
  std::error_code ignored;
  if (!fs::is_directory(dataset / "images", ignored)) {
    throw std::runtime_error("Found a model in " + toUtf8(dataset) +
                             " but no images/ beside it. Pass the folder that holds both images/ and the sparse "
                             "model, not the model folder itself.");
  }
  Project project = newProject(dataset, false, outDir);
  project.externalDataset = toUtf8(storedPath(dataset));
  return project;
}

void Project::ensureLayout() const {
  for (const fs::path& folder : {root, framesFolder(), colmapFolder(), sparseFolder(), outputFolder()}) {
    makeFolder(folder);
  }
}

bool Project::isProject(const fs::path& folder) {
  std::error_code ignored;
  return fs::is_regular_file(projectFile(folder), ignored);
}

}  // namespace quor
