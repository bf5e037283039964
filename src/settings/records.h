// The records that hold every knob of the pipeline. A project owns one of each; what each member means, its limits and
// its names in front of the user stand in the table (settings_table.h).
#pragma once

#include <array>
#include <cstdint>
#include <string>

#include "settings/technique.h"

namespace quor {

enum class Matcher : int32_t { Exhaustive = 0, Sequential = 1, VocabTree = 2 };
enum class MapperKind : int32_t { Incremental = 0, Global = 1 };
// Where every pair of images would be matched and there are many: all the same, or those likely to show the same
// things.
enum class PairChoice : int32_t { All = 0, Likely = 1 };
// Whether cameras are solved again in other ways when the first solve is not sound.
enum class CameraRetries : int32_t { Auto = 0, Off = 1 };

inline constexpr int kMaxShDegree = 3;
inline constexpr int kMaxDownscales = 8;     // an image of 16 k pixels has shrunk to 64 by then
inline constexpr int kMaxImageEdge = 65535;  // pixels; the most that a JPEG can have

struct IngestSettings {
  int targetFrameCount = 200;
  int maxDimension = 1920;
  bool blurRejection = true;
  double blurThreshold = 0.55;
  int jpegQuality = 2;
  int viewsPerFrame = 6;
  double fieldOfView = 90.0;
  int viewResolution = 1400;
  bool includePoles = false;
  double pitchOffset = 0.0;
  double fisheyeFieldOfView = 190.0;
  double fisheyeMaskBelow = 0.0;
  double fisheyeCropBottom = 0.0;
  double fisheyeEdgeMargin = 0.0;
  double fisheyeCropEdges = 0.0;
  // Views no larger than their sphere holds detail for, while viewResolution is left at its default. New projects have
  // it on.
  bool viewsFollowSphere = false;
};

struct SparseSettings {
  Matcher matcher = Matcher::Sequential;
  std::string cameraModel = "OPENCV";
  bool singleCamera = true;
  int maxImageSize = 2400;
  int maxFeatures = 8192;
  bool useGPU = false;
  bool gpuMatching = true;
  MapperKind mapper = MapperKind::Incremental;
  int sequentialOverlap = 15;
  std::string vocabTreePath;
  CameraRetries retries = CameraRetries::Auto;
  PairChoice pairs = PairChoice::All;
  bool georeference = true;
};

struct TrainingSettings {
  gs::Technique technique = gs::Technique::Vanilla;
  int iterations = 7000;
  int shDegree = 3;
  int numDownscales = 2;
  float ssimWeight = 0.2f;
  int refineEvery = 100;
  bool evalMode = true;
  int testEvery = 8;
  bool exportPLY = true;
  bool exportSplat = false;
  uint64_t splatBudget = 0;
  int trainingResolution = 0;
  std::array<float, 3> background = {0, 0, 0};
  bool visualizerEnabled = true;
  bool continueFromCheckpoint = false;
};

// The training settings of a new project, for whoever else starts from them.
inline constexpr TrainingSettings kTrainingDefaults;

struct Settings {
  IngestSettings ingest;
  SparseSettings sparse;
  TrainingSettings training;

  // What derives from this takes over the settings of another and keeps all else.
  void takeSettings(const Settings& other) { *this = other; }
};

}  // namespace quor
