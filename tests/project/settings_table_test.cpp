#include "settings/settings_table.h"

#include <gmock/gmock.h>

#include <cmath>

#include "settings/settings.h"

namespace quor {
namespace {

using testing::HasSubstr;

Json recordsOf(const Settings& settings) {
  Json json;
  toJson(json, settings.ingest, settings.sparse, settings.training);
  return json;
}

// A value that the setting takes and that is not its default.
Json otherValue(const Setting& setting) {
  const Json value = valueOf(setting, {});
  if (const auto limits = limitsOf(setting)) return value == limits->least ? limits->most : limits->least;
  if (value.is_boolean()) return !value.get<bool>();
  if (value.is_array()) return {0.25, 0.5, 1.0};
  if (const auto* choice = std::get_if<ChoiceSetting>(&setting.value)) {
    return choice->words[value == choice->words[0].name ? 1 : 0].name;
  }
  return "another é";
}

TEST(SettingsTable, ARowReachesItsOwnMemberAndNoOther) {
  const Json fresh = recordsOf({});
  size_t members = 0;
  for (const auto& [record, object] : fresh.items()) members += object.size();
  EXPECT_EQ(settingsTable().size(), members) << "two rows have one key";
  for (const Setting& setting : settingsTable()) {
    Settings settings;
    readSetting(setting, otherValue(setting), settings);
    const Json changes = Json::diff(fresh, recordsOf(settings));
    EXPECT_FALSE(changes.empty()) << setting.key;
    const std::string path = std::string("/") + recordKey(setting.group) + "/" + setting.key;
    for (const Json& change : changes) EXPECT_THAT(change["path"].get<std::string>(), testing::StartsWith(path));

    Settings read;
    fromJson(recordsOf(settings), read.ingest, read.sparse, read.training);
    EXPECT_EQ(recordsOf(read), recordsOf(settings)) << setting.key;
  }
}

TEST(SettingsTable, LimitsHoldTheDefaultAndNothingBeyondThem) {
  for (const Setting& setting : settingsTable()) {
    const auto limits = limitsOf(setting);
    if (!limits) continue;
    const std::string key = setting.key;
    EXPECT_TRUE(isWithinLimits(setting, valueOf(setting, {}).get<double>())) << key;
    const auto taken = [&](double number) {
      char text[64];
      std::snprintf(text, sizeof text, limits->whole ? "%.0f" : "%.17g", number);
      EXPECT_EQ(parseSetting(setting, text).has_value(), isWithinLimits(setting, number)) << key << " " << text;
      return isWithinLimits(setting, number);
    };
    const double step = limits->whole ? 1 : 1e-6;
    EXPECT_TRUE(taken(limits->least) && taken(limits->most)) << key;
    EXPECT_FALSE(taken(limits->least - step) || taken(limits->most + step)) << key;
    EXPECT_EQ(isWithinLimits(setting, limits->least + 0.3), !limits->whole) << key;
    EXPECT_FALSE(isWithinLimits(setting, NAN)) << key;
    for (const char* text : {"", "1x", "nan", "inf", " 1"}) EXPECT_FALSE(parseSetting(setting, text)) << key << text;
  }
}

TEST(SettingsTable, TextsShowTheValuesThatHold) {
  EXPECT_EQ(wanted(settingNamed("iterations")), "a whole number from 1 up");
  EXPECT_EQ(wanted(settingNamed("shDegree")), "a whole number from 0 to 3");
  EXPECT_EQ(wanted(settingNamed("fisheyeMaskBelow")), "an angle from 0 to 90 degrees");
  EXPECT_EQ(wanted(settingNamed("matcher")), "exhaustive, sequential or vocab_tree");
  for (const Setting& setting : settingsTable()) {
    for (const char* text : {setting.description, setting.meaning}) {
      EXPECT_THAT(settingText(setting, text), testing::Not(HasSubstr("{")));
    }
    for (const SettingOption& option : setting.options) {
      EXPECT_THAT(settingText(setting, option.help), testing::Not(HasSubstr("{")));
    }
    EXPECT_NE(setting.places, 0U) << setting.key;
  }
  EXPECT_EQ(settingText(settingNamed("exportSplat"), "{default}"), "false");
  EXPECT_EQ(settingText(settingNamed("shDegree"), "{least}-{most}"), "0-3");
}

}  // namespace
}  // namespace quor
