#include "base/crash/crash_report.h"

#include <gtest/gtest.h>

#include <string>

#include "base/text/time_text.h"

namespace quor {
namespace {

std::string stamp(int64_t seconds) {
  char text[kStampLength + 1];
  writeStamp(text, seconds);
  return text;
}

TEST(CrashReport, StampsAgreeWithTheCalendar) {
  EXPECT_EQ(stamp(1740837909), "-20250301-140509");
  for (const int64_t seconds :
       {0LL, 951782399LL, 951782400LL, 1709251199LL, 4102444799LL}) {  // about leap days and years
    EXPECT_EQ(stamp(seconds), formatUtcTime(seconds, "-%Y%m%d-%H%M%S"));
  }
}

}  // namespace
}  // namespace quor
