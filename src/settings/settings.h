// The three records that hold every knob of the pipeline. They travel inside project.json and batch.json; reading is a
// merge onto what the records hold.
#pragma once

#include <array>
#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>

#include "settings/technique.h"

namespace quor {

enum class Matcher : int32_t { Exhaustive = 0, Sequential = 1, VocabTree = 2 };
enum class MapperKind : int32_t { Incremental = 0, Global = 1 };

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

// Sets the keys "ingest", "sparse" and "training" of `object`; an object under one of them is replaced.
void toJson(nlohmann::ordered_json& object, const IngestSettings& ingest, const SparseSettings& sparse,
            const TrainingSettings& training);
// A member that is missing or null keeps its value, a number out of its field's range becomes the nearest that fits
// (the SH degree: 0 to 3), an unknown matcher or technique keeps the value there was. Throws std::runtime_error that
// names the member when its type is wrong. `object` must be a JSON object.
void fromJson(const nlohmann::ordered_json& object, IngestSettings& ingest, SparseSettings& sparse,
              TrainingSettings& training);

// false for an unknown word, which leaves the value alone.
bool parseMatcher(const std::string& word, Matcher& matcher);
bool parseTechnique(const std::string& word, gs::Technique& technique);
const char* matcherName(Matcher matcher);
const char* mapperName(MapperKind mapper);
const char* techniqueName(gs::Technique technique);

}  // namespace quor
