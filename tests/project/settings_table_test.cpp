#include "settings/settings_table.h"

#include <gtest/gtest.h>

#include <cmath>

#include "settings/settings.h"

namespace quor {
namespace {

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

}  // namespace
}  // namespace quor
