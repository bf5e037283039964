#include "settings/settings.h"

#include <algorithm>
#include <charconv>

#include "base/text/text.h"
#include "settings/json_members.h"

namespace quor {
namespace {

// Each record's members once, in the order in which they are written; Record is const for writing.
template <typename Record, typename Visit>
void visitIngest(Record& r, Visit&& visit) {
  visit("targetFrameCount", r.targetFrameCount);
  visit("maxDimension", r.maxDimension);
  visit("blurRejection", r.blurRejection);
  visit("blurThreshold", r.blurThreshold);
  visit("jpegQuality", r.jpegQuality);
  visit("viewsPerFrame", r.viewsPerFrame);
  visit("fieldOfView", r.fieldOfView);
  visit("viewResolution", r.viewResolution);
  visit("includePoles", r.includePoles);
  visit("pitchOffset", r.pitchOffset);
  visit("fisheyeFieldOfView", r.fisheyeFieldOfView);
  visit("fisheyeMaskBelow", r.fisheyeMaskBelow);
  visit("fisheyeCropBottom", r.fisheyeCropBottom);
  visit("fisheyeEdgeMargin", r.fisheyeEdgeMargin);
  visit("fisheyeCropEdges", r.fisheyeCropEdges);
}

template <typename Record, typename Visit>
void visitSparse(Record& r, Visit&& visit) {
  visit("matcher", r.matcher);
  visit("cameraModel", r.cameraModel);
  visit("singleCamera", r.singleCamera);
  visit("maxImageSize", r.maxImageSize);
  visit("maxFeatures", r.maxFeatures);
  visit("useGPU", r.useGPU);
  visit("gpuMatching", r.gpuMatching);
  visit("mapper", r.mapper);
  visit("sequentialOverlap", r.sequentialOverlap);
  visit("vocabTreePath", r.vocabTreePath);
}

template <typename Record, typename Visit>
void visitTraining(Record& r, Visit&& visit) {
  visit("technique", r.technique);
  visit("iterations", r.iterations);
  visit("shDegree", r.shDegree);
  visit("numDownscales", r.numDownscales);
  visit("ssimWeight", r.ssimWeight);
  visit("refineEvery", r.refineEvery);
  visit("evalMode", r.evalMode);
  visit("testEvery", r.testEvery);
  visit("exportPLY", r.exportPLY);
  visit("exportSplat", r.exportSplat);
  visit("splatBudget", r.splatBudget);
  visit("trainingResolution", r.trainingResolution);
  visit("background", r.background);
  visit("visualizerEnabled", r.visualizerEnabled);
  visit("continueFromCheckpoint", r.continueFromCheckpoint);
}

// The double with the float's own shortest digits, so that 0.2f is written as 0.2.
double shortestDouble(float value) {
  char text[32];
  const auto end = std::to_chars(text, text + sizeof text, value).ptr;
  double result = value;
  std::from_chars(text, end, result);
  return result;
}

Json written(int value) {
  return value;
}
Json written(uint64_t value) {
  return value;
}
Json written(bool value) {
  return value;
}
Json written(double value) {
  return value;
}
Json written(float value) {
  return shortestDouble(value);
}
Json written(const std::string& value) {
  return value;
}
Json written(Matcher value) {
  return matcherName(value);
}
Json written(MapperKind value) {
  return mapperName(value);
}
Json written(gs::Technique value) {
  return techniqueName(value);
}
Json written(const std::array<float, 3>& value) {
  return Json::array({written(value[0]), written(value[1]), written(value[2])});
}

template <typename T>
void assign(const Json& json, const char* key, T& value) {
  readValue(json, key, value);
}

// An unknown word keeps the technique or the matcher there was.
void assign(const Json& json, const char* key, Matcher& matcher) {
  std::string word;
  readValue(json, key, word);
  parseMatcher(word, matcher);
}

void assign(const Json& json, const char* key, gs::Technique& technique) {
  std::string word;
  readValue(json, key, word);
  parseTechnique(word, technique);
}

void assign(const Json& json, const char* key, MapperKind& mapper) {
  std::string word;
  readValue(json, key, word);
  mapper = word == "global" ? MapperKind::Global : MapperKind::Incremental;
}

void assign(const Json& json, const char* key, std::array<float, 3>& color) {
  if (!json.is_array()) throwNot(key, "a list");
  for (size_t i = 0; i < std::min(json.size(), color.size()); ++i) readValue(json[i], key, color[i]);
}

auto writerTo(Json& object) {
  object = Json::object();
  return [&object](const char* key, const auto& value) { object[key] = written(value); };
}

auto readerFrom(const Json& object) {
  return [&object](const char* key, auto& value) {
    if (const Json* member = findMember(object, key)) assign(*member, key, value);
  };
}

}  // namespace

void toJson(Json& object, const IngestSettings& ingest, const SparseSettings& sparse,
            const TrainingSettings& training) {
  visitIngest(ingest, writerTo(object["ingest"]));
  visitSparse(sparse, writerTo(object["sparse"]));
  visitTraining(training, writerTo(object["training"]));
}

void fromJson(const Json& object, IngestSettings& ingest, SparseSettings& sparse, TrainingSettings& training) {
  if (const Json* member = findObject(object, "ingest")) visitIngest(ingest, readerFrom(*member));
  if (const Json* member = findObject(object, "sparse")) visitSparse(sparse, readerFrom(*member));
  if (const Json* member = findObject(object, "training")) visitTraining(training, readerFrom(*member));
  training.shDegree = std::clamp(training.shDegree, 0, 3);
}

bool parseMatcher(const std::string& word, Matcher& matcher) {
  if (word == "exhaustive") {
    matcher = Matcher::Exhaustive;
  } else if (word == "sequential") {
    matcher = Matcher::Sequential;
  } else if (word == "vocab_tree" || word == "vocabTree" || word == "vocab") {
    matcher = Matcher::VocabTree;
  } else {
    return false;
  }
  return true;
}

bool parseTechnique(const std::string& word, gs::Technique& technique) {
  const std::string lower = toLower(word);
  if (lower == "vanilla" || lower == "default" || lower == "adc") {
    technique = gs::Technique::Vanilla;
  } else if (lower == "mcmc") {
    technique = gs::Technique::Mcmc;
  } else {
    return false;
  }
  return true;
}

const char* matcherName(Matcher matcher) {
  switch (matcher) {
    case Matcher::Exhaustive:
      return "exhaustive";
    case Matcher::VocabTree:
      return "vocab_tree";
    default:  // a damaged value too: what is written can always be read back
      return "sequential";
  }
}

const char* mapperName(MapperKind mapper) {
  return mapper == MapperKind::Global ? "global" : "incremental";
}

const char* techniqueName(gs::Technique technique) {
  return technique == gs::Technique::Mcmc ? "mcmc" : "vanilla";
}

}  // namespace quor
