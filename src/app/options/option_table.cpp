#include "app/options/option_table.h"

#include <charconv>

#include "base/text/text.h"

namespace quor {

namespace {

// Where there is a program, a device or a result to speak of.
constexpr Places kOnWork = kWithAnything | kOnBatch;
constexpr Places kOnAll = kOnWork | kOnMcp | kOnDevices | kOnInstructions;

[[noreturn]] void refuse(const std::string& option, const std::string& takes, const std::string& value) {
  throw UsageError(option + " takes " + takes + ", not '" + value + "'");
}

[[noreturn]] void refuseValue(const std::string& option, const Setting& setting, const std::string& value) {
  if (const auto* choice = std::get_if<ChoiceSetting>(&setting.value)) {
    std::string sentence = choice->refusal;
    if (const size_t at = sentence.find("{}"); at != std::string::npos) sentence.replace(at, 2, value);
    throw UsageError(sentence);
  }
  if (std::holds_alternative<TextSetting>(setting.value)) throw UsageError(option + " needs a value");
  refuse(option, wanted(setting), value);
}

OptionSpec settingOption(const Setting& setting, const SettingOption& option) {
  const bool flag = option.value == nullptr;
  const auto apply = [&setting, &option, flag](Options& options, const std::string& value) {
    const std::optional<Json> parsed = flag ? Json(option.on) : parseSetting(setting, value);
    if (!parsed) refuseValue(option.name, setting, value);
    options.settings[recordKey(setting.group)][setting.key] = *parsed;
  };
  return {option.name, flag ? "" : option.value, settingText(setting, option.help), setting.places, &setting, apply};
}

void addSettings(OptionGroup& group, std::initializer_list<SettingGroup> settings) {
  for (const Setting& setting : settingsTable()) {
    for (const SettingOption& option : setting.options) {
      for (const SettingGroup wanted : settings) {
        if (setting.group == wanted) group.options.push_back(settingOption(setting, option));
      }
    }
  }
}

auto text(const char* option, std::string Options::*field) {
  return [=](Options& options, const std::string& value) {
    if (value.empty()) throw UsageError(std::string(option) + " needs a value");
    options.*field = value;
  };
}

auto flag(bool Options::*field) {
  return [=](Options& options, const std::string&) { options.*field = true; };
}

void applyKind(Options& options, const std::string& value) {
  for (const InputKind kind : {InputKind::Images, InputKind::Video, InputKind::Video360, InputKind::DualFisheye}) {
    if (value != kindName(kind)) continue;
    options.kind = kind;
    return;
  }
  refuse("--kind", "images, video, video360 or dualfisheye", value);
}

void applyFrom(Options& options, const std::string& value) {
  if (value == "frames") {
    options.from = Stage::Frames;
  } else if (value == "sparse") {
    options.from = Stage::Sparse;
  } else {
    refuse("--from", "frames or sparse", value);
  }
}

void applyDevice(Options& options, const std::string& value) {
  int number = 0;
  const char* end = value.data() + value.size();
  const auto [stop, error] = std::from_chars(value.data(), end, number);
  if (error != std::errc() || stop != end || number < -1) refuse("--device", "a whole number from -1 up", value);
  options.device = number;
}

OptionSpec option(const char* name, const char* value, const char* help, Places places,
                  std::function<void(Options&, const std::string&)> apply) {
  return {name, value, help, places, nullptr, std::move(apply)};
}

OptionGroup projectOptions() {
  return {"Project",
          {option("--out", "DIR", "folder in which the new project folder is made (default: beside the first input)",
                  kOnRun | kOnTrainDataset | kOnImport, text("--out", &Options::out)),
           option("--from", "STAGE", "train: re-run the project's pipeline from that stage, frames or sparse", kOnTrain,
                  applyFrom)}};
}

OptionGroup frameOptions() {
  OptionGroup group{
      "Frames",
      {option("--kind", "KIND", "kind of every input: images, video, video360 or dualfisheye (default: detected)",
              kOnRun | kOnTrainFromFrames, applyKind)}};
  addSettings(group, {SettingGroup::Frames, SettingGroup::Sphere, SettingGroup::Fisheye});
  return group;
}

OptionGroup commonOptions() {
  return {
      "Tools and output",
      {option("--colmap", "PATH", "COLMAP executable or folder", kOnWork | kOnMcp, text("--colmap", &Options::colmap)),
       option("--ffmpeg", "PATH", "ffmpeg executable or folder", kOnWork | kOnMcp, text("--ffmpeg", &Options::ffmpeg)),
       option("--device", "N", "Vulkan device index, as listed by `devices` (default -1: the best one)",
              kOnWork | kOnMcp, applyDevice),
       option("--json", "", "a machine-readable result on standard output", kOnWork, flag(&Options::json)),
       option("--quiet", "", "only warnings and errors on standard error", kOnAll, flag(&Options::quiet))}};
}

}  // namespace

const std::vector<OptionGroup>& optionGroups() {
  static const std::vector<OptionGroup> groups = [] {
    OptionGroup training{"Training", {}};
    addSettings(training, {SettingGroup::Training});
    OptionGroup cameras{"Cameras", {}};
    addSettings(cameras, {SettingGroup::Cameras});
    return std::vector{projectOptions(), training, frameOptions(), cameras, commonOptions()};
  }();
  return groups;
}

}  // namespace quor
