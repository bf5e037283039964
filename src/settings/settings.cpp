#include "settings/settings.h"

#include <algorithm>

#include "settings/settings_table.h"

namespace quor {
namespace {

const ChoiceSetting& choiceNamed(const char* key) {
  return std::get<ChoiceSetting>(settingNamed(key).value);
}

template <class Enum>
bool parseWord(const char* key, const std::string& word, Enum& value) {
  const auto found = findWord(choiceNamed(key), word);
  if (found) value = static_cast<Enum>(*found);
  return found.has_value();
}

}  // namespace

void toJson(Json& object, const IngestSettings& ingest, const SparseSettings& sparse,
            const TrainingSettings& training) {
  const Settings settings{ingest, sparse, training};
  for (const char* record : {"ingest", "sparse", "training"}) object[record] = Json::object();
  for (const Setting* row : settingsInFileOrder()) object[recordKey(row->group)][row->key] = valueOf(*row, settings);
}

void fromJson(const Json& object, IngestSettings& ingest, SparseSettings& sparse, TrainingSettings& training) {
  Settings settings{ingest, sparse, training};
  for (const char* record : {"ingest", "sparse", "training"}) findObject(object, record);
  for (const Setting* row : settingsInFileOrder()) {
    const Json* record = findObject(object, recordKey(row->group));
    const Json* member = record ? findMember(*record, row->key) : nullptr;
    if (member) readSetting(*row, *member, settings);
  }
  settings.training.shDegree = std::clamp(settings.training.shDegree, 0, kMaxShDegree);
  ingest = settings.ingest;
  sparse = settings.sparse;
  training = settings.training;
}

bool parseMatcher(const std::string& word, Matcher& matcher) {
  return parseWord("matcher", word, matcher);
}

bool parseTechnique(const std::string& word, gs::Technique& technique) {
  return parseWord("technique", word, technique);
}

const char* matcherName(Matcher matcher) {
  return wordOf(choiceNamed("matcher"), static_cast<int>(matcher));
}

const char* mapperName(MapperKind mapper) {
  return wordOf(choiceNamed("mapper"), static_cast<int>(mapper));
}

const char* techniqueName(gs::Technique technique) {
  return wordOf(choiceNamed("technique"), static_cast<int>(technique));
}

}  // namespace quor
