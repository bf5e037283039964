#include "base/crash/crash_report.h"

#include <algorithm>
#include <chrono>
#include <cstring>

#include "base/crash/crash_handler.h"
#include "base/version.h"

namespace quor {
namespace {

LogTail tail;

char* putDigits(char* to, int64_t value, int digits) {
  for (int i = digits - 1; i >= 0; --i, value /= 10) to[i] = static_cast<char>('0' + value % 10);
  return to + digits;
}

}  // namespace

ReportWriter& ReportWriter::text(std::string_view text) {
  while (!text.empty()) {
    if (used_ == sizeof buffer_) flush();
    const size_t count = std::min(text.size(), sizeof buffer_ - used_);
    std::memcpy(buffer_ + used_, text.data(), count);
    used_ += count;
    text.remove_prefix(count);
  }
  return *this;
}

ReportWriter& ReportWriter::hex(uint64_t value, int digits) {
  char reversed[16];
  int count = 0;
  for (; value != 0 || count < digits; value >>= 4) reversed[count++] = "0123456789abcdef"[value & 15];
  text("0x");
  while (count > 0) text({&reversed[--count], 1});
  return *this;
}

void ReportWriter::flush() {
  if (used_ > 0) sink_(target_, buffer_, used_);
  used_ = 0;
}

void writeLocation(ReportWriter& report, const CodeLocation& location) {
  if (location.module.empty()) {
    report.text("unknown module");
  } else {
    report.text(location.module).text("+").hex(location.offset);
  }
}

void writeCrash(ReportWriter& report, std::string_view appName, const Crash& crash) {
  report.text(appName).text(" ").text(kVersion).text(" crashed\n");
  if (crash.reason != nullptr) report.text("reason: ").text(crash.reason).text("\n");
  if (crash.exceptionName != nullptr) {
    report.text("exception: ").hex(crash.exceptionCode, 8).text(" (").text(crash.exceptionName).text(") at ");
    writeLocation(report, crash.place);
    report.text("\n");
  }
  if (crash.access != nullptr) report.text("  ").text(crash.access).text(" address ").hex(crash.address).text("\n");
  report.text("stack (code addresses only):\n");
}

void writeStackLine(ReportWriter& report, const CodeLocation& location) {
  report.text("  ");
  writeLocation(report, location);
  report.text("\n");
}

void writeLogLines(ReportWriter& report) {
  report.text("\nlast log lines:\n");
  const uint64_t count = tail.count();
  for (uint64_t i = count - std::min<uint64_t>(count, LogTail::kLines); i < count; ++i) report.text(tail.line(i));
}

LogTail& crashLogTail() {
  return tail;
}

void writeStamp(char (&stamp)[kStampLength + 1], int64_t localSeconds) {
  using namespace std::chrono;
  const sys_seconds time{seconds{localSeconds}};
  const auto day = floor<days>(time);
  const year_month_day date{day};
  const hh_mm_ss clock{time - day};
  char* to = stamp;
  *to++ = '-';
  to = putDigits(to, int{date.year()}, 4);
  to = putDigits(to, unsigned{date.month()}, 2);
  to = putDigits(to, unsigned{date.day()}, 2);
  *to++ = '-';
  to = putDigits(to, clock.hours().count(), 2);
  to = putDigits(to, clock.minutes().count(), 2);
  to = putDigits(to, clock.seconds().count(), 2);
  *to = '\0';
}

}  // namespace quor
