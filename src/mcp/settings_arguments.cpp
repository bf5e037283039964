// The project settings that an assistant may overwrite, from the table of settings.
#include "mcp/arguments.h"

namespace quor::mcp {

namespace {

ArgumentType typeOf(const Setting& setting) {
  if (const auto limits = limitsOf(setting)) return limits->whole ? ArgumentType::Integer : ArgumentType::Number;
  if (std::holds_alternative<SwitchSetting>(setting.value)) return ArgumentType::Boolean;
  return std::holds_alternative<ChoiceSetting>(setting.value) ? ArgumentType::Choice : ArgumentType::Text;
}

Argument argumentOf(const Setting& setting) {
  Argument argument{setting.argument, typeOf(setting), settingText(setting, setting.description)};
  argument.setting = &setting;
  if (const auto* choice = std::get_if<ChoiceSetting>(&setting.value)) {
    for (const ChoiceWord& word : choice->words) argument.choices.push_back(word.name);
  }
  return argument;
}

}  // namespace

Arguments settingArguments(Places place) {
  Arguments arguments;
  // What is trained with matters to most who call, so it comes first.
  for (const bool training : {true, false}) {
    for (const Setting& setting : settingsTable()) {
      const bool wanted = setting.argument && (setting.places & place) != 0;
      if (wanted && training == (setting.group == SettingGroup::Training)) arguments.push_back(argumentOf(setting));
    }
  }
  return arguments;
}

void applySettings(const Arguments& arguments, const Json& given, Settings& settings) {
  for (const Argument& argument : arguments) {
    if (argument.setting && given.contains(argument.name)) {
      readSetting(*argument.setting, given[argument.name], settings);
    }
  }
}

}  // namespace quor::mcp
