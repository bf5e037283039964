// What the rows of the table are built from: a pointer to a record's member gives a row its access and its kind.
#pragma once

#include <algorithm>
#include <charconv>
#include <limits>
#include <type_traits>
#include <utility>

#include "settings/settings_table.h"

namespace quor {

std::vector<Setting> frameRows();
std::vector<Setting> cameraRows();
std::vector<Setting> trainingRows();

inline constexpr int kNoLimit = std::numeric_limits<int>::max();

template <class T>
auto& recordOf(auto& settings, T IngestSettings::*) {
  return settings.ingest;
}
template <class T>
auto& recordOf(auto& settings, T SparseSettings::*) {
  return settings.sparse;
}
template <class T>
auto& recordOf(auto& settings, T TrainingSettings::*) {
  return settings.training;
}

template <auto Field>
auto& memberOf(Settings& settings) {
  return recordOf(settings, Field).*Field;
}

template <auto Field>
using MemberType = std::decay_t<decltype(memberOf<Field>(std::declval<Settings&>()))>;

template <auto Field>
const void* fieldOf(const Settings& settings) {
  return &(recordOf(settings, Field).*Field);
}

inline double shortestDouble(float value) {
  char text[32];
  const auto end = std::to_chars(text, text + sizeof text, value).ptr;
  double result = static_cast<double>(value);
  std::from_chars(text, end, result);
  return result;
}
inline double shortestDouble(double value) {
  return value;
}

template <auto Field>
RealSetting real(double least, double most, const char* format, const char* noun, const char* unit = "") {
  return {[](const Settings& s) { return shortestDouble(recordOf(s, Field).*Field); },
          [](Settings& s, double value) {
            constexpr double kLargest = std::numeric_limits<MemberType<Field>>::max();
            memberOf<Field>(s) = static_cast<MemberType<Field>>(std::clamp(value, -kLargest, kLargest));
          },
          fieldOf<Field>,
          least,
          most,
          format,
          noun,
          unit};
}

template <auto Field>
ChoiceSetting choice(std::vector<ChoiceWord> words, const char* refusal) {
  return {[](const Settings& s) { return static_cast<int>(recordOf(s, Field).*Field); },
          [](Settings& s, int value) { memberOf<Field>(s) = static_cast<MemberType<Field>>(value); }, fieldOf<Field>,
          std::move(words), refusal};
}

}  // namespace quor
