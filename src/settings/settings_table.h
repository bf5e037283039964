// The one table of settings. A row holds everything that anybody needs to know of a setting: its key in project.json
// and batch.json, its field, limits and words, its options on the command line and where they belong, its argument for
// assistants, and its label in the window. Defaults stand in the records alone. To add a setting, add its member to a
// record and its row here.
#pragma once

#include <array>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "settings/json_members.h"
#include "settings/records.h"

namespace quor {

// Headings under which settings are shown, in this order.
enum class SettingGroup { Frames, Sphere, Fisheye, Cameras, Training };
inline constexpr std::array kSettingGroups = {SettingGroup::Frames, SettingGroup::Sphere, SettingGroup::Fisheye,
                                              SettingGroup::Cameras, SettingGroup::Training};

// The first stage that has to run again before a changed value shows.
enum class SettingStage { Frames, Cameras, Training };

// Where an option or an argument belongs: a set of places, one bit each. `train` is five places, because what it can
// use depends on what it trains.
using Places = unsigned;
inline constexpr Places kOnRun = 1;
inline constexpr Places kOnTrainFromFrames = 2;   // of a project made from media
inline constexpr Places kOnTrainFromCameras = 4;  // the same, --from sparse
inline constexpr Places kOnTrainOnly = 8;         // the same, without --from
inline constexpr Places kOnTrainImported = 16;    // of a project that wraps a dataset
inline constexpr Places kOnTrainDataset = 32;     // of the dataset itself
inline constexpr Places kOnImport = 64;
inline constexpr Places kOnBatch = 128;
inline constexpr Places kOnMcp = 256;
inline constexpr Places kOnDevices = 512;
inline constexpr Places kOnInstructions = 1024;
inline constexpr Places kOnTrainMedia = kOnTrainFromFrames | kOnTrainFromCameras | kOnTrainOnly;
inline constexpr Places kOnTrainProject = kOnTrainMedia | kOnTrainImported;
inline constexpr Places kOnTrain = kOnTrainProject | kOnTrainDataset;
// Settings of frames and cameras mean nothing for a dataset, which brings its own.
inline constexpr Places kWithMedia = kOnRun | kOnTrainMedia;
inline constexpr Places kWithAnything = kOnRun | kOnTrain | kOnImport;

struct WholeSetting {
  int& (*of)(Settings&);
  int least, most;
  const char* zero = nullptr;  // what 0 means, where it is not a number like others
};
struct CountSetting {
  uint64_t& (*of)(Settings&);
  uint64_t most;
  const char* zero = nullptr;
};
struct RealSetting {
  double (*get)(const Settings&);  // of a float, the double with the float's own shortest digits: 0.2
  void (*set)(Settings&, double);
  const void* (*field)(const Settings&);
  double least, most;
  const char* format;  // printf's, of a double
  const char* noun;    // "an angle"
  const char* unit;    // " degrees", or nothing
};
struct SwitchSetting {
  bool& (*of)(Settings&);
};
struct ChoiceWord {
  const char* name;   // as written to JSON
  const char* label;  // in the window
  std::vector<const char*> aliases = {};
};
struct ChoiceSetting {
  int (*get)(const Settings&);
  void (*set)(Settings&, int);
  const void* (*field)(const Settings&);
  std::vector<ChoiceWord> words;  // for the values from 0
  const char* refusal;            // of an unknown word on the command line, which stands for "{}"
  bool anyCase = false;           // letter case does not count
  bool unknownIsFirst = false;    // in a file an unknown word is the first choice instead of being ignored
};
struct TextSetting {
  std::string& (*of)(Settings&);
  std::vector<const char*> suggestions;
};
struct ColourSetting {
  std::array<float, 3>& (*of)(Settings&);
};
using SettingValue =
    std::variant<WholeSetting, CountSetting, RealSetting, SwitchSetting, ChoiceSetting, TextSetting, ColourSetting>;

// In every text below, "{default}", "{least}" and "{most}" stand for the row's own.
struct SettingOption {
  const char* name;             // with its dashes
  const char* value = nullptr;  // placeholder of its value; none for a flag
  const char* help;             // a line feed continues on a line of its own
  bool on = true;               // what a flag sets its switch to
};

struct Setting {
  const char* key = nullptr;
  SettingGroup group = SettingGroup::Training;
  SettingStage stage = SettingStage::Training;
  SettingValue value = {};
  Places places = 0;  // of its options, and of its argument on the tools of the same names
  std::vector<SettingOption> options = {};
  const char* argument = nullptr;               // its name for assistants; none where they cannot set it
  const char* description = "";                 // of the argument
  const char* label = nullptr;                  // in the window; none where the window has another way to set it
  const char* meaning = "";                     // a sentence or two, in the window
  std::optional<gs::Technique> technique = {};  // the only one that knows it; none: all do
};

// In the order in which a user should meet them, group by group.
const std::vector<Setting>& settingsTable();
const Setting& settingNamed(const std::string& key);  // std::out_of_range
// The object of project.json that holds the group's members: "ingest", "sparse" or "training".
const char* recordKey(SettingGroup group);
// By the order of the members in their records, which is the order in files.
const std::vector<const Setting*>& settingsInFileOrder();

// The value of a word or one of its aliases.
std::optional<int> findWord(const ChoiceSetting& choice, const std::string& word);
// An invalid value is written as the default, so that what is written can always be read back.
const char* wordOf(const ChoiceSetting& choice, int value);

Json valueOf(const Setting& setting, const Settings& settings);
// As fromJson() reads a member. Throws std::runtime_error for a wrong type.
void readSetting(const Setting& setting, const Json& json, Settings& settings);

// From an option's text; nothing when it is not as wanted(). The value suits readSetting().
std::optional<Json> parseSetting(const Setting& setting, const std::string& text);
// Whether the number lies within the limits of a setting that holds one (a whole one where it has to be).
bool isWithinLimits(const Setting& setting, double number);
// "a whole number from 0 to 3", "an angle from 0 to 90 degrees": what the setting takes.
std::string wanted(const Setting& setting);
// Replaces the placeholders.
std::string settingText(const Setting& setting, const char* text);

// The limits of a number; nothing for any other setting.
struct SettingLimits {
  double least, most;
  bool whole;
};
std::optional<SettingLimits> limitsOf(const Setting& setting);

}  // namespace quor
