// A project: the folder that holds everything made from one capture, with the file project.json that records the inputs
// and all settings.
#pragma once

#include <array>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "project/georeference.h"
#include "settings/settings.h"

namespace quor {

enum class InputKind : int32_t { Images = 0, Video = 1, Video360 = 2, DualFisheye = 3 };
const char* kindName(InputKind kind);          // as written in files and on the command line
const char* kindLabel(InputKind kind);         // as shown to the user
InputKind parseKind(const std::string& word);  // unknown words give Images

struct InputSource {
  std::string path;  // UTF-8; a media file or a folder of images
  InputKind kind = InputKind::Images;
};

// One camera of a rig: cameras that are fixed to one another and see every moment together. Images of one moment have
// the same name but for the camera's suffix before the extension: "f00001_v00.jpg", "f00001_v01.jpg".
struct RigView {
  std::string suffix;
  // From the rig's frame to the camera's, w x y z, where the source fixes it (the views of a sphere); the cameras then
  // share their centre. Otherwise the solve finds where the camera sits.
  std::optional<std::array<double, 4>> rotation;
  bool operator==(const RigView&) const = default;
};

// Which camera each group of extracted images was taken with; filled by the frame stage, used by the camera solve.
struct ImageGroup {
  std::string name;
  std::vector<std::string> images;
  std::string cameraModel;
  std::vector<double> cameraParams;
  bool usesFisheyeMask = false;
  std::vector<RigView> rig = {};  // of whose moments the images show a part; empty for cameras of their own
};
struct Extraction {
  int lensSize = 0;  // pixels, of one square lens image of a dual-fisheye source
  std::vector<ImageGroup> groups;
  std::map<std::string, GeoPosition> positions;  // by image, where the photographs say
};

// What media of these kinds suggest: how their frames are compared, and the camera model when all are of one kind.
SparseSettings suggestedSettings(const std::vector<InputSource>& inputs);
// Where the settings are still as `before` suggested, they become as `now` suggests: what a user has decided stays.
void followSuggestion(const SparseSettings& before, const SparseSettings& now, SparseSettings& settings);

class Project : public Settings {
 public:
  std::string name;
  std::vector<InputSource> inputs;
  std::string createdAt;                                 // UTC, 2025-03-01T14:05:09Z
  std::string externalDataset;                           // UTF-8 path of the wrapped COLMAP dataset, empty when none
  std::optional<std::array<double, 4>> knownIntrinsics;  // fx, fy, cx, cy of a PINHOLE camera
  Extraction extraction;
  std::optional<Georeference> georeference;  // of the solved cameras
  std::filesystem::path root;                // not stored

  static bool isProject(const std::filesystem::path& folder);
  // Throws std::runtime_error "No project.json in FOLDER" or "project.json in FOLDER is damaged: reason".
  static Project load(const std::filesystem::path& folder);
  // Both make the folder NAME_ombrelux, or reuse the one that is there, with its layout and save; outDir may be empty
  // (beside the first input or the dataset). Relative paths are stored as absolute ones. They throw std::runtime_error
  // with a whole sentence.
  static Project create(const std::vector<InputSource>& inputs, const std::filesystem::path& outDir);
  static Project fromDataset(const std::filesystem::path& dataset, const std::filesystem::path& outDir);
  // The project that create() or fromDataset() would make; writes nothing.
  static Project describe(const std::vector<InputSource>& inputs, const std::filesystem::path& outDir);
  static Project describeDataset(const std::filesystem::path& dataset, const std::filesystem::path& outDir);

  // Written beside project.json, flushed to the disk and moved over it. Throws std::runtime_error "Cannot write PATH".
  void save() const;
  void ensureLayout() const;  // existing folders are kept

  // Where everything lies; see project_layout.cpp.
  static std::filesystem::path projectFile(const std::filesystem::path& folder);
  std::filesystem::path framesFolder() const;
  std::filesystem::path unfinishedFramesFolder() const;  // while the frame stage runs
  std::filesystem::path frameReportFile() const;         // what is wrong with the capture
  std::filesystem::path colmapFolder() const;
  std::filesystem::path databaseFile() const;
  std::filesystem::path featureRecordFile() const;  // which frames the database's features are of
  std::filesystem::path sparseFolder() const;
  // The dataset that the camera solve makes for training: images/ without lens distortion, and their model in sparse/.
  std::filesystem::path solvedFolder() const;
  std::filesystem::path unfinishedSolvedFolder() const;
  std::filesystem::path colmapLog() const;         // all that COLMAP printed
  std::filesystem::path cameraReportFile() const;  // what the solve is worth
  std::filesystem::path coverageFile() const;      // a picture of the sides that it was taken from
  std::filesystem::path outputFolder() const;
  std::filesystem::path sceneFile() const;
  std::filesystem::path sceneSplatFile() const;
  std::filesystem::path checkpointFile() const;
  std::filesystem::path trainingLog() const;
  std::filesystem::path resultFile() const;        // the figures of the last run that ended in a scene
  std::filesystem::path evaluationFolder() const;  // the report on the held-out views
  std::filesystem::path georeferenceFile() const;  // where on the Earth the scene lies
  std::filesystem::path maskFile() const;
};

}  // namespace quor
