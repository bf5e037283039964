// Tolerant reading of JSON members: one that is missing, or null (which is how a NaN was written), leaves the value
// alone; a number that does not fit its field becomes the nearest that does; a wrong type throws std::runtime_error.
#pragma once

#include <algorithm>
#include <concepts>
#include <limits>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace quor {

using Json = nlohmann::ordered_json;

[[noreturn]] inline void throwNot(const std::string& key, const char* wanted) {
  throw std::runtime_error("\"" + key + "\" is not " + wanted);
}

inline const Json* findMember(const Json& object, const char* key) {
  const auto found = object.find(key);
  return found == object.end() || found->is_null() ? nullptr : &*found;
}

inline const Json* findObject(const Json& object, const char* key) {
  const Json* member = findMember(object, key);
  if (member && !member->is_object()) throwNot(key, "an object");
  return member;
}

inline const Json* findArray(const Json& object, const char* key) {
  const Json* member = findMember(object, key);
  if (member && !member->is_array()) throwNot(key, "a list");
  return member;
}

inline void readValue(const Json& json, const std::string& key, bool& value) {
  if (!json.is_boolean()) throwNot(key, "true or false");
  value = json.get<bool>();
}

inline void readValue(const Json& json, const std::string& key, std::string& value) {
  if (!json.is_string()) throwNot(key, "a text");
  value = json.get<std::string>();
}

template <std::floating_point T>
void readValue(const Json& json, const std::string& key, T& value) {
  if (!json.is_number()) throwNot(key, "a number");
  constexpr double kLargest = std::numeric_limits<T>::max();
  value = static_cast<T>(std::clamp(json.get<double>(), -kLargest, kLargest));
}

template <std::integral T>
void readValue(const Json& json, const std::string& key, T& value) {
  using Limits = std::numeric_limits<T>;
  if (!json.is_number()) throwNot(key, "a number");
  if (json.is_number_unsigned()) {
    const auto number = json.get<uint64_t>();
    value = std::cmp_greater(number, Limits::max()) ? Limits::max() : static_cast<T>(number);
  } else if (json.is_number_integer()) {
    const auto number = json.get<int64_t>();
    value = std::cmp_less(number, Limits::min())      ? Limits::min()
            : std::cmp_greater(number, Limits::max()) ? Limits::max()
                                                      : static_cast<T>(number);
  } else {
    const auto number = json.get<double>();
    // The largest value of a 64-bit type has no double of its own; the next one up is the first that does not fit.
    value = number <= static_cast<double>(Limits::min())   ? Limits::min()
            : number >= static_cast<double>(Limits::max()) ? Limits::max()
                                                           : static_cast<T>(number);
  }
}

template <typename T>
void readValue(const Json& json, const std::string& key, std::vector<T>& values) {
  if (!json.is_array()) throwNot(key, "a list");
  values.assign(json.size(), T{});
  for (size_t i = 0; i < values.size(); ++i) readValue(json[i], key, values[i]);
}

template <typename T>
void readMember(const Json& object, const char* key, T& value) {
  if (const Json* member = findMember(object, key)) readValue(*member, key, value);
}

}  // namespace quor
