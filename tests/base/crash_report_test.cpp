#include "base/crash/crash_report.h"

#include <gtest/gtest.h>

#include <string>

#include "base/text/time_text.h"
#include "base/version.h"

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

TEST(CrashReport, IsWrittenInItsOrder) {
  const auto written = [](const Crash& crash) {
    std::string text;
    const ReportWriter::Sink append = [](void* target, const char* bytes, size_t count) {
      static_cast<std::string*>(target)->append(bytes, count);
    };
    ReportWriter report(append, &text);
    writeCrash(report, "Ombrelux", crash);
    writeStackLine(report, {"program", 0x1f});
    report.flush();
    return text;
  };
  Crash crash;
  EXPECT_EQ(written(crash),
            "Ombrelux " + std::string(kVersion) + " crashed\nstack (code addresses only):\n  program+0x1f\n");
  crash.reason = kPureCallReason;
  crash.exceptionName = "exception";
  crash.exceptionCode = 0xc0000025;
  crash.access = "reading";
  crash.address = 0xfedcba9876543210;
  const std::string folderName(600, 'm');  // longer than any buffer
  crash.place = {folderName, 0};
  EXPECT_EQ(written(crash),
            "Ombrelux " + std::string(kVersion) +
                " crashed\nreason: pure virtual function call\nexception: 0xc0000025 (exception) at " + folderName +
                "+0x0\n  reading address 0xfedcba9876543210\nstack (code addresses only):\n  program+0x1f\n");
  crash.place = {};
  crash.access = nullptr;
  EXPECT_NE(written(crash).find(" at unknown module\nstack "), std::string::npos);
}

}  // namespace
}  // namespace quor
