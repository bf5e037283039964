#include "settings/settings_table.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <stdexcept>

#include "base/text/text.h"
#include "settings/table_rows.h"

namespace quor {

namespace {

template <class... Visitors>
struct Overloaded : Visitors... {
  using Visitors::operator()...;
};
template <class... Visitors>
Overloaded(Visitors...) -> Overloaded<Visitors...>;

template <class T>
concept HasReference = requires(T value, Settings& settings) {
  value.of(settings);
};

const void* fieldAddress(const Setting& setting, Settings& settings) {
  return std::visit(
      [&](const auto& value) -> const void* {
        if constexpr (HasReference<decltype(value)>) {
          return &value.of(settings);
        } else {
          return value.field(settings);
        }
      },
      setting.value);
}

void readChoice(const ChoiceSetting& choice, const Json& json, const char* key, Settings& settings) {
  std::string word;
  readValue(json, key, word);
  if (const auto value = findWord(choice, word)) {
    choice.set(settings, *value);
  } else if (choice.unknownIsFirst) {
    choice.set(settings, 0);
  }
}

void readColour(const Json& json, const char* key, std::array<float, 3>& colour) {
  if (!json.is_array()) throwNot(key, "a list");
  for (size_t i = 0; i < std::min(json.size(), colour.size()); ++i) readValue(json[i], key, colour[i]);
}

template <class Number>
std::optional<Json> parseNumber(const Setting& setting, const std::string& text) {
  Number number{};
  const char* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, number);
  if (error != std::errc() || stop != end || !isWithinLimits(setting, static_cast<double>(number))) return std::nullopt;
  return number;
}

std::string shownNumber(double number) {
  return formatText("%.15g", number);
}

std::string shownDefault(const Setting& setting) {
  const Json value = valueOf(setting, {});
  if (value.is_string()) return value.get<std::string>();
  return value.is_number() ? shownNumber(value.get<double>()) : value.dump();
}

}  // namespace

std::optional<int> findWord(const ChoiceSetting& choice, const std::string& given) {
  const std::string word = choice.anyCase ? toLower(given) : given;
  for (size_t i = 0; i < choice.words.size(); ++i) {
    const auto& [name, label, aliases] = choice.words[i];
    if (word == name || std::ranges::count(aliases, word) > 0) return static_cast<int>(i);
  }
  return std::nullopt;
}

const char* wordOf(const ChoiceSetting& choice, int value) {
  const bool valid = value >= 0 && static_cast<size_t>(value) < choice.words.size();
  return choice.words[static_cast<size_t>(valid ? value : choice.get(Settings()))].name;
}

const std::vector<Setting>& settingsTable() {
  static const std::vector<Setting> table = [] {
    std::vector<Setting> all = frameRows();
    for (const auto& more : {cameraRows(), trainingRows()}) all.insert(all.end(), more.begin(), more.end());
    return all;
  }();
  return table;
}

const Setting& settingNamed(const std::string& key) {
  const auto& table = settingsTable();
  const auto found = std::ranges::find_if(table, [&](const Setting& setting) { return key == setting.key; });
  if (found == table.end()) throw std::out_of_range("no setting " + key);
  return *found;
}

const char* recordKey(SettingGroup group) {
  switch (group) {
    case SettingGroup::Frames:
    case SettingGroup::Sphere:
    case SettingGroup::Fisheye:
      return "ingest";
    case SettingGroup::Cameras:
      return "sparse";
    case SettingGroup::Training:
      break;
  }
  return "training";
}

// Members of one record lie in memory in the order of their declaration.
const std::vector<const Setting*>& settingsInFileOrder() {
  static const std::vector<const Setting*> ordered = [] {
    std::vector<const Setting*> rows;
    for (const Setting& setting : settingsTable()) rows.push_back(&setting);
    Settings settings;
    std::ranges::sort(rows, std::less<>(), [&](const Setting* row) { return fieldAddress(*row, settings); });
    return rows;
  }();
  return ordered;
}

Json valueOf(const Setting& setting, const Settings& given) {
  Settings settings = given;
  return std::visit(
      Overloaded{[&](const RealSetting& real) -> Json { return real.get(settings); },
                 [&](const ChoiceSetting& choice) -> Json { return wordOf(choice, choice.get(settings)); },
                 [&](const ColourSetting& colour) {
                   Json channels = Json::array();
                   for (const float channel : colour.of(settings)) channels.push_back(shortestDouble(channel));
                   return channels;
                 },
                 [&](const auto& other) -> Json { return other.of(settings); }},
      setting.value);
}

void readSetting(const Setting& setting, const Json& json, Settings& settings) {
  std::visit(Overloaded{[&](const RealSetting& real) {
                          double value = 0;
                          readValue(json, setting.key, value);
                          real.set(settings, value);
                        },
                        [&](const ChoiceSetting& choice) { readChoice(choice, json, setting.key, settings); },
                        [&](const ColourSetting& colour) { readColour(json, setting.key, colour.of(settings)); },
                        [&](const auto& other) { readValue(json, setting.key, other.of(settings)); }},
             setting.value);
}

std::optional<Json> parseSetting(const Setting& setting, const std::string& text) {
  return std::visit(
      Overloaded{[&](const WholeSetting&) { return parseNumber<int>(setting, text); },
                 [&](const CountSetting&) { return parseNumber<uint64_t>(setting, text); },
                 [&](const RealSetting&) { return parseNumber<double>(setting, text); },
                 [&](const ChoiceSetting& choice) {
                   const auto value = findWord(choice, text);
                   return value ? std::optional<Json>(wordOf(choice, *value)) : std::nullopt;
                 },
                 [&](const TextSetting&) { return text.empty() ? std::nullopt : std::optional<Json>(text); },
                 [](const auto&) -> std::optional<Json> { return std::nullopt; }},
      setting.value);
}

std::optional<SettingLimits> limitsOf(const Setting& setting) {
  using Limits = std::optional<SettingLimits>;
  return std::visit(Overloaded{[](const WholeSetting& s) {
                                 return Limits({static_cast<double>(s.least), static_cast<double>(s.most), true});
                               },
                               [](const CountSetting& s) {
                                 return Limits({0, static_cast<double>(s.most), true});
                               },
                               [](const RealSetting& s) {
                                 return Limits({s.least, s.most, false});
                               },
                               [](const auto&) { return Limits(); }},
                    setting.value);
}

bool isWithinLimits(const Setting& setting, double number) {
  const auto limits = limitsOf(setting);
  return limits && number >= limits->least && number <= limits->most &&
         (!limits->whole || number == std::floor(number));
}

std::string wanted(const Setting& setting) {
  if (const auto* choice = std::get_if<ChoiceSetting>(&setting.value)) {
    std::string text;
    for (size_t i = 0; i < choice->words.size(); ++i) {
      text += i == 0 ? "" : i + 1 == choice->words.size() ? " or " : ", ";
      text += choice->words[i].name;
    }
    return text;
  }
  const auto limits = limitsOf(setting);
  if (!limits) return std::holds_alternative<SwitchSetting>(setting.value) ? "true or false" : "a text";
  const auto* real = std::get_if<RealSetting>(&setting.value);
  const std::string from = std::string(real ? real->noun : "a whole number") + " from " + shownNumber(limits->least);
  if (limits->most == kNoLimit) return from + " up";
  return from + " to " + shownNumber(limits->most) + (real ? real->unit : "");
}

std::string settingText(const Setting& setting, const char* text) {
  std::string result = text;
  const auto put = [&](const std::string& name, const auto& value) {
    if (const size_t at = result.find(name); at != std::string::npos) result.replace(at, name.size(), value());
  };
  put("{default}", [&] { return shownDefault(setting); });
  put("{least}", [&] { return shownNumber(limitsOf(setting)->least); });
  put("{most}", [&] { return shownNumber(limitsOf(setting)->most); });
  return result;
}

}  // namespace quor
