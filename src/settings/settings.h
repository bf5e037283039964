// How the records travel: as JSON inside project.json and batch.json and from the command line and the assistant
// server, whose reading is a merge onto what the records hold.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

#include "settings/records.h"

namespace quor {

// Sets the keys "ingest", "sparse" and "training" of `object`, each with its members in the record's order; an object
// under one of them is replaced.
void toJson(nlohmann::ordered_json& object, const IngestSettings& ingest, const SparseSettings& sparse,
            const TrainingSettings& training);
// A member that is missing or null keeps its value, a number that its field cannot hold becomes the nearest that fits
// (the SH degree: 0 to 3), an unknown matcher or technique keeps the value there was. Throws std::runtime_error that
// names the member when its type is wrong. `object` must be a JSON object.
void fromJson(const nlohmann::ordered_json& object, IngestSettings& ingest, SparseSettings& sparse,
              TrainingSettings& training);

// false for an unknown word, which leaves the value alone.
bool parseMatcher(const std::string& word, Matcher& matcher);
bool parseTechnique(const std::string& word, gs::Technique& technique);
// The words that are written to JSON; an invalid value gives the default's.
const char* matcherName(Matcher matcher);
const char* mapperName(MapperKind mapper);
const char* techniqueName(gs::Technique technique);

}  // namespace quor
