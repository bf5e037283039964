// The names of everything in a project folder.
#include "project/project.h"

namespace quor {
namespace fs = std::filesystem;

fs::path Project::projectFile(const fs::path& folder) {
  return folder / "project.json";
}
fs::path Project::framesFolder() const {
  return root / "frames";
}
fs::path Project::unfinishedFramesFolder() const {
  return root / "frames.partial";
}
fs::path Project::frameReportFile() const {
  return root / "frames_report.json";
}
fs::path Project::colmapFolder() const {
  return root / "colmap";
}
fs::path Project::databaseFile() const {
  return colmapFolder() / "database.db";
}
fs::path Project::featureRecordFile() const {
  return colmapFolder() / "features.json";
}
fs::path Project::sparseFolder() const {
  return colmapFolder() / "sparse";
}
fs::path Project::solvedFolder() const {
  return colmapFolder() / "undistorted";
}
fs::path Project::unfinishedSolvedFolder() const {
  return colmapFolder() / "undistorted.partial";
}
fs::path Project::colmapLog() const {
  return colmapFolder() / "colmap.log";
}
fs::path Project::cameraReportFile() const {
  return colmapFolder() / "report.json";
}
fs::path Project::coverageFile() const {
  return colmapFolder() / "coverage.png";
}
fs::path Project::outputFolder() const {
  return root / "output";
}
fs::path Project::sceneFile() const {
  return outputFolder() / "scene.ply";
}
fs::path Project::sceneSplatFile() const {
  return outputFolder() / "scene.splat";
}
fs::path Project::checkpointFile() const {
  return outputFolder() / "checkpoint.quor";
}
fs::path Project::trainingLog() const {
  return outputFolder() / "training.log";
}
fs::path Project::resultFile() const {
  return outputFolder() / "result.json";
}
fs::path Project::evaluationFolder() const {
  return outputFolder() / "eval";
}
fs::path Project::georeferenceFile() const {
  return outputFolder() / "georeference.json";
}
fs::path Project::maskFile() const {
  return root / "masks" / "camera_mask.png";
}

}  // namespace quor
