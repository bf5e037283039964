#include "sfm/colmap_workspace.h"

#include <stdexcept>

#include "base/files/paths.h"

namespace quor {
namespace {

namespace fs = std::filesystem;

[[noreturn]] void failClearing(const fs::path& path, const std::error_code& error) {
  throw std::runtime_error("Cannot clear what an earlier camera solve left in " + toUtf8(path) + ": " +
                           error.message() + ". Close what uses it and try again.");
}

void removeAll(const fs::path& path) {
  std::error_code error;
  fs::remove_all(path, error);
  if (error) failClearing(path, error);
}

void makeFolder(const fs::path& path) {
  std::error_code error;
  fs::create_directories(path, error);
  if (error) throw std::runtime_error("Cannot create the folder " + toUtf8(path) + ": " + error.message());
}

}  // namespace

ColmapWorkspace::ColmapWorkspace(const Project& project)
    : frames(fs::absolute(project.framesFolder())),
      folder(fs::absolute(project.colmapFolder())),
      database(fs::absolute(project.databaseFile())),
      featureRecord(fs::absolute(project.featureRecordFile())),
      sparse(fs::absolute(project.sparseFolder())),
      rig(folder / "rig"),
      retries(folder / "retries"),
      lists(folder / "lists"),
      log(fs::absolute(project.colmapLog())),
      report(fs::absolute(project.cameraReportFile())),
      coverage(fs::absolute(project.coverageFile())),
      undistorted(fs::absolute(project.solvedFolder())),
      unfinished(fs::absolute(project.unfinishedSolvedFolder())) {}

void ColmapWorkspace::clear() const {
  removeAll(unfinished);
  std::error_code error;
  if (fs::exists(fs::symlink_status(undistorted, error))) {
    // Renamed first: training must never find a partly deleted dataset.
    fs::rename(undistorted, unfinished, error);
    if (error) failClearing(undistorted, error);
    removeAll(unfinished);
  }
  removeAll(sparse);
  removeAll(rig);
  removeAll(retries);
  removeAll(report);
  removeAll(coverage);
  removeAll(lists);
  for (const fs::path& made : {folder, sparse, lists}) makeFolder(made);
}

void ColmapWorkspace::removeDatabase() const {
  for (const char* suffix : {"", "-wal", "-shm", "-journal"}) {
    fs::path file = database;
    removeAll(file += suffix);
  }
}

void ColmapWorkspace::finish() const {
  std::error_code error;
  fs::rename(unfinished, undistorted, error);
  if (error) {
    throw std::runtime_error("Cannot move " + toUtf8(unfinished) + " to " + toUtf8(undistorted) + ": " +
                             error.message());
  }
}

}  // namespace quor
