#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <regex>

#include "base/process/child_process.h"
#include "base/process/tool_places.h"
#include "support/child_program.h"
#include "support/small_capture.h"

// A sanitizer keeps its own handlers.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define OMBRELUX_SANITIZED
#endif

namespace quor::test {
namespace {

#ifndef OMBRELUX_SANITIZED
namespace fs = std::filesystem;
using ::testing::HasSubstr;
using ::testing::StartsWith;

constexpr const char* kPlace = "OmbreluxCLI\\+0x[0-9a-f]+";

class Crash : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    constexpr rlimit kNone = {};
    setrlimit(RLIMIT_CORE, &kNone);
  }
  fs::path reports() const { return home_ / "Ombrelux/crashes"; }
  std::vector<std::string> environment(const std::string& way) const {
    return {"XDG_DATA_HOME=" + toUtf8(home_.path()), "QUOR_TEST_CRASH=" + way};
  }
  // The one report there is, its name checked.
  std::string report() const {
    std::vector<fs::path> files;
    if (fs::exists(reports())) files.assign(fs::directory_iterator(reports()), {});
    if (files.size() != 1) return std::to_string(files.size()) + " reports";
    EXPECT_TRUE(std::regex_match(files[0].filename().string(), std::regex("OmbreluxCLI-\\d{8}-\\d{6}\\.txt")));
    return readFile(files[0]);
  }
  std::string crash(const std::string& way, int signal) {
    const Ended ended = runCli({"version"}, environment(way));
    EXPECT_EQ(ended.exitCode, 128 + signal) << way;
    EXPECT_EQ(ended.out, "");
    EXPECT_THAT(ended.err, HasSubstr("Ombrelux ran into a problem and has to close.\n\nA crash report was saved to:\n" +
                                     toUtf8(reports()) + "\n\nPlease send the newest .txt"));
    std::string text = report();
    fs::remove_all(reports());
    return text;
  }

  TempFolder home_;
};

// What addr2line says about a place.
std::string functionAt(const std::string& place) {
  for (const fs::path& folder : searchPathFolders()) {
    if (!isProgramFile(folder / "addr2line")) continue;
    std::string function;
    runChildProcess(
        {folder / "addr2line", {"-f", "-C", "-e", OMBRELUX_CLI, place.substr(place.find('+') + 1)}, {}},
        [&](std::string_view line) { function.append(line).append("\n"); }, [] { return false; });
    return function;
  }
  return "no addr2line";
}

TEST_F(Crash, AReportTellsWhatHappenedWhereAndWhatWasLogged) {
  const std::string text = crash("1", SIGSEGV);
  std::smatch found;
  const std::regex shape(std::string("OmbreluxCLI 1\\.1\\.3 crashed\n"
                                     "exception: 0x0000000b \\(segmentation fault\\) at (") +
                         kPlace +
                         ")\n"
                         "  writing address 0x0\n"
                         "stack \\(code addresses only\\):\n"
                         "((?:  [^ \n]+\\+0x[0-9a-f]+\n){1,40})"
                         "\nlast log lines:\n"
                         "\\d\\d:\\d\\d:\\d\\d Crashing on purpose \\(QUOR_TEST_CRASH\\)\n");
  ASSERT_TRUE(std::regex_match(text, found, shape)) << text;
  EXPECT_THAT(found[2].str(), ::testing::ContainsRegex(kPlace));
  const std::string function = functionAt(found[1]);
  if (function == "no addr2line" || function.starts_with("??")) GTEST_SKIP() << "no symbols: " << function;
  EXPECT_THAT(function, HasSubstr("crashByWriting"));
}

TEST_F(Crash, EveryWayToDieEndsAsItWouldWithoutAReport) {
  const std::string head = "OmbreluxCLI 1.1.3 crashed\n";
  EXPECT_THAT(crash("thread", SIGSEGV),
              StartsWith(head + "exception: 0x0000000b (segmentation fault) at OmbreluxCLI+"));
  EXPECT_THAT(crash("overflow", SIGSEGV), StartsWith(head + "exception: 0x0000000b (stack overflow) at OmbreluxCLI+"));
  EXPECT_THAT(crash("thread-overflow", SIGSEGV),
              StartsWith(head + "exception: 0x0000000b (stack overflow) at OmbreluxCLI+"));
  EXPECT_THAT(crash("abort", SIGABRT), StartsWith(head + "exception: 0x00000006 (aborted) at libc"));
#ifdef __x86_64__
  EXPECT_THAT(crash("divide", SIGFPE),
              StartsWith(head + "exception: 0x00000008 (integer divide by zero) at OmbreluxCLI+"));
#endif
  EXPECT_THAT(crash("pure", SIGABRT), StartsWith(head + "reason: pure virtual function call\nstack "));
  const std::string escaped = crash("terminate", SIGABRT);
  EXPECT_THAT(escaped,
              StartsWith(head + "reason: std::terminate (an exception escaped, or a thread was left running)\nstack "));
  EXPECT_THAT(escaped, ::testing::EndsWith("escaped exception: An exception that nobody catches.\n"));
}

TEST_F(Crash, AReportThatCannotBeSavedIsPrinted) {
  writeFile(home_ / "Ombrelux/crashes", "in the way");
  const Ended ended = runCli({"version"}, environment("1"));
  EXPECT_EQ(ended.exitCode, 128 + SIGSEGV);
  EXPECT_THAT(ended.err, HasSubstr("No crash report could be saved to:\n" + toUtf8(reports())));
  EXPECT_THAT(ended.err, HasSubstr("\nlast log lines:\n"));
}

// The signal of a debugger's user, in the middle of the work: what the command's own log says is in the report.
TEST_F(Crash, AReportHoldsTheLogOfTheRunningCommand) {
  writeSmallCapture(home_ / "set");
  ChildProgram run(OMBRELUX_CLI, {"train", toUtf8(home_ / "set"), "--iterations", "100000"}, environment(""));
  ASSERT_TRUE(run.waitForError("train: step"));
  run.signal(SIGBUS);
  EXPECT_EQ(run.wait().exitCode, 128 + SIGBUS);
  const std::string text = report();
  EXPECT_THAT(text, StartsWith("OmbreluxCLI 1.1.3 crashed\nexception: 0x00000007 (bus error) at "));
  EXPECT_THAT(text, HasSubstr("Vulkan 1."));
}
#endif

}  // namespace
}  // namespace quor::test
