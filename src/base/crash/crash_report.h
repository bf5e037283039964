// The parts of a crash report that are the same everywhere. Made for the handler of a crash: nothing here allocates,
// locks, throws or asks the C library for more than memcpy.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace quor {

// Gathers text in a small buffer and hands it on when that is full and at the end.
class ReportWriter {
 public:
  using Sink = void (*)(void* target, const char* bytes, size_t count);
  ReportWriter(Sink sink, void* target) : sink_(sink), target_(target) {}
  ~ReportWriter() { flush(); }
  ReportWriter(const ReportWriter&) = delete;
  ReportWriter& operator=(const ReportWriter&) = delete;

  ReportWriter& text(std::string_view text);
  ReportWriter& hex(uint64_t value, int digits = 1);  // "0x" and at least so many digits
  void flush();

 private:
  Sink sink_;
  void* target_;
  size_t used_ = 0;
  char buffer_[512];
};

// A place in the code: MODULE+0xOFFSET.
struct CodeLocation {
  std::string_view module;  // the file's name without its folder; empty: unknown
  uint64_t offset = 0;
};
void writeLocation(ReportWriter& report, const CodeLocation& location);

struct Crash {
  const char* reason = nullptr;         // in words, when a handler was told one
  const char* exceptionName = nullptr;  // of a signal or structured exception, or null
  uint64_t exceptionCode = 0;
  CodeLocation place;            // where the exception happened
  const char* access = nullptr;  // "reading", "writing", ..., when it was about an address
  uint64_t address = 0;
};

inline constexpr const char* kTerminateReason = "std::terminate (an exception escaped, or a thread was left running)";
inline constexpr const char* kPureCallReason = "pure virtual function call";

// All up to the addresses on the stack, each of which writeStackLine() adds; then the log.
void writeCrash(ReportWriter& report, std::string_view appName, const Crash& crash);
void writeStackLine(ReportWriter& report, const CodeLocation& location);
void writeLogLines(ReportWriter& report);

inline constexpr size_t kStackSlots = 4096;  // of 8 bytes, looked through from the stack pointer up
inline constexpr int kStackHits = 40;

// "-YYYYMMDD-HHMMSS" of an instant in local seconds since 1970, with a final zero.
inline constexpr size_t kStampLength = 16;
void writeStamp(char (&stamp)[kStampLength + 1], int64_t localSeconds);

// The message to the user; the folder follows it.
inline constexpr std::string_view kCrashMessage =
    "Ombrelux ran into a problem and has to close.\n\nA crash report was saved to:\n";
inline constexpr std::string_view kCrashMessageUnsaved =
    "Ombrelux ran into a problem and has to close.\n\nNo crash report could be saved to:\n";

}  // namespace quor
