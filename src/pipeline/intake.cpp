#include "pipeline/intake.h"

#include <algorithm>
#include <stdexcept>

#include "base/files/paths.h"
#include "colmap/model.h"
#include "pipeline/media.h"
#include "project/project_lock.h"

namespace quor {

namespace fs = std::filesystem;

namespace {

// The capture that a project was made from.
std::string sourceOf(const Project& project) {
  return project.inputs.empty() ? project.externalDataset : project.inputs.front().path;
}

void applyKind(InputKind kind, const std::string& path, std::vector<InputSource>& inputs) {
  const bool images = kind == InputKind::Images;
  std::erase_if(inputs, [&](const InputSource& input) { return (input.kind == InputKind::Images) != images; });
  if (inputs.empty()) throw std::runtime_error(std::string(images ? "No images in " : "No videos in ") + path);
  for (InputSource& input : inputs) input.kind = kind;
}

}  // namespace

Classification classifyExisting(const std::string& path) {
  Classification found;
  found.type = PathClass::Missing;
  if (!path.empty()) found = classifyPath(absolutePath(path));
  if (found.type == PathClass::Missing) throw std::runtime_error("No such file or folder: " + path);
  return found;
}

void refuseModelWithoutImages(const std::string& path, const char* advice) {
  const fs::path folder = absolutePath(path);
  std::error_code ignored;
  if (gs::colmap::findModelDir(folder).empty() || fs::is_directory(folder / "images", ignored)) return;
  throw std::runtime_error("Found a model in " + path + " but no images/ beside it. " + advice);
}

std::vector<InputSource> collectMedia(const std::vector<std::string>& paths, std::optional<InputKind> kind,
                                      const IntakeAdvice& advice) {
  std::vector<InputSource> inputs;
  for (const std::string& path : paths) {
    Classification found = classifyExisting(path);
    switch (found.type) {
      case PathClass::Project:
        throw std::runtime_error(path + " is already a Ombrelux project" + advice.forProject);
      case PathClass::Dataset:
        throw std::runtime_error(path + " holds a COLMAP reconstruction" + advice.forDataset);
      case PathClass::Media:
        break;
      default:
        throw std::runtime_error("No images or videos in " + path);
    }
    if (kind) applyKind(*kind, path, found.inputs);
    for (InputSource& input : found.inputs) {
      const auto same = [&](const InputSource& other) { return other.path == input.path; };
      if (std::ranges::none_of(inputs, same)) inputs.push_back(std::move(input));
    }
  }
  if (!kind) detectVideoKinds(inputs);
  return inputs;
}

void refuseAnothersProject(const Project& project, const std::string& advice) {
  Project earlier;
  try {
    earlier = Project::load(project.root);
  } catch (const std::exception&) {
    return;  // nothing there that could be lost
  }
  const std::string source = sourceOf(earlier);
  std::error_code ignored;
  const bool gone = source.empty() || !fs::exists(fromUtf8(source), ignored);
  if (gone || isSamePlace(fromUtf8(source), fromUtf8(sourceOf(project)))) return;
  throw std::runtime_error(toUtf8(project.root) + " is the project of another capture, " + source + ". " + advice);
}

void saveBeforeRun(const Project& project) {
  const ProjectLock lock(project);
  project.ensureLayout();
  project.save();
}

Project createProject(const std::vector<InputSource>& inputs, const fs::path& outDir,
                      const std::function<void(Project&)>& configure, const std::string& advice) {
  Project project = Project::describe(inputs, outDir);
  refuseAnothersProject(project, advice);
  configure(project);
  try {
    saveBeforeRun(project);
  } catch (const std::exception& error) {
    throw std::runtime_error(std::string(error.what()) + " " + advice);
  }
  return project;
}

}  // namespace quor
