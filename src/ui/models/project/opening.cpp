#include "ui/models/project/opening.h"

#include <fstream>

#include "base/failures.h"
#include "base/files/paths.h"
#include "colmap/model.h"
#include "gs/files/checkpoint.h"
#include "gs/files/ply_header.h"
#include "pipeline/intake.h"

namespace quor::ui {

namespace fs = std::filesystem;

namespace {

Opened refused(std::string title, std::vector<std::string> lines) {
  Opened opened;
  opened.notice = Notice{std::move(title), std::move(lines), true};
  return opened;
}

// A model without its pictures is the likeliest mistake of somebody who has a reconstruction.
Opened refuseNothing(const fs::path& path) {
  std::error_code ignored;
  if (fs::is_directory(path, ignored) && !gs::colmap::findModelDir(path).empty()) {
    return refused("Cannot open this", {"Found a model in " + toUtf8(path) +
                                        " but no images/ beside it. Choose the folder that holds both images/ and the "
                                        "sparse model, not the model folder itself."});
  }
  return refused("Cannot open this", {"Ombrelux cannot open this. Drop a folder of images, videos, a Ombrelux project, "
                                      "a COLMAP dataset or a .ply scene."});
}

// Refuses a damaged scene before what is open is closed for it.
void checkScene(const fs::path& path, PathClass type) {
  if (type == PathClass::Checkpoint) {
    gs::readCheckpointHeader(path);
  } else {
    std::ifstream file(path, std::ios::binary);
    gs::readPlyHeader(file, toUtf8(path));
  }
}

Opened openOne(const fs::path& path) {
  const Classification found = classifyPath(path);
  Opened opened;
  switch (found.type) {
    case PathClass::Missing:
      opened = refused("Nothing there", {"No such file or folder:", toUtf8(path)});
      opened.gone = path;
      return opened;
    case PathClass::Nothing:
      return refuseNothing(path);
    case PathClass::Project:
      return openProject(path);
    case PathClass::Dataset:
      return openDataset(path, {});
    case PathClass::Media:
      addMedia(opened.media, path, found);
      return opened;
    case PathClass::Scene:
    case PathClass::Checkpoint:
      break;
  }
  checkScene(path, found.type);
  opened.scene = path;
  opened.facts = readSceneFacts(path);
  return opened;
}

bool standsAlone(PathClass type) {
  return type == PathClass::Project || type == PathClass::Dataset || type == PathClass::Scene ||
         type == PathClass::Checkpoint;
}

Opened openSeveral(const std::vector<fs::path>& paths) {
  Opened opened;
  for (const fs::path& path : paths) {
    const Classification found = classifyPath(path);
    if (standsAlone(found.type)) {
      return refused("One at a time", {toUtf8(path) + " can only be opened by itself.",
                                       "Photographs, videos and folders of them may come together."});
    }
    addMedia(opened.media, path, found);
  }
  if (!opened.media.sources.empty()) return opened;
  if (opened.media.origins.empty()) return openOne(paths.front());  // says why not
  return refused("Cannot open this", opened.media.problems);
}

}  // namespace

Opened openProject(const fs::path& folder) {
  Opened opened;
  opened.project = Project::load(folder);
  opened.facts = readProjectFacts(*opened.project);
  return opened;
}

Opened openDataset(const fs::path& dataset, const fs::path& outDir) {
  const Project project = Project::describeDataset(dataset, outDir);
  try {
    refuseAnothersProject(project, "Choose another folder for the project.");
    if (Project::isProject(project.root)) return openProject(project.root);
    project.ensureLayout();
    project.save();
  } catch (const std::exception& error) {
    Opened opened;
    opened.import = DatasetImport{true, dataset, outDir, failureText(error)};
    return opened;
  }
  Opened opened = openProject(project.root);
  opened.notice = Notice{"Created project",
                         {toUtf8(project.root), toUtf8(dataset.filename()) + ": COLMAP reconstruction with " +
                                                    std::to_string(opened.facts.cameras) + " cameras"},
                         false};
  return opened;
}

Opened openPaths(const std::vector<fs::path>& paths) {
  std::vector<fs::path> whole;
  whole.reserve(paths.size());
  for (const fs::path& path : paths) {
    whole.push_back(path.empty() ? path : absolutePath(toUtf8(path)));
    const fs::path folder = whole.back().parent_path();  // file managers open files
    if (whole.back() == Project::projectFile(folder) && Project::isProject(folder)) whole.back() = folder;
  }
  return whole.size() == 1 ? openOne(whole.front()) : openSeveral(whole);
}

}  // namespace quor::ui
