#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/child_program.h"

namespace quor::test {
namespace {

using ::testing::HasSubstr;
using ::testing::MatchesRegex;
using ::testing::StartsWith;

TEST(Usage, ErrorsNameWhatIsWrongBeforeTheUsageText) {
  struct Case {
    std::vector<std::string> arguments;
    std::string message;
  };
  const std::vector<Case> cases = {
      {{"run"}, "run needs a path"},
      {{"train", "a", "b"}, "train takes one path, but was also given 'b'"},
      {{"run", "clip.mp4", "--frames"}, "--frames needs a value"},
      {{"train", "--foo"}, "unknown option --foo"},
      {{"trian", "a"}, "unknown command 'trian'"},
      {{"mcp", "--sh", "1"},
       "--sh is an option of run, train and import, not of mcp: its client sends settings with each call"},
      {{"train", "a", "--from", "train"}, "--from takes frames or sparse, not 'train'"},
      {{"train", "a", "--technique", "mcmc2"}, "unknown technique 'mcmc2' (vanilla or mcmc)"},
      {{"train", "a", "--iterations", "99999999999"}, "--iterations takes a whole number from 1 up, not '99999999999'"},
      {{"train", "a", "--hide-below", "nan"}, "--hide-below takes an angle from 0 to 90 degrees, not 'nan'"},
  };
  for (const Case& c : cases) {
    const Ended ended = runCli(c.arguments);
    EXPECT_EQ(ended.exitCode, 2) << c.message;
    EXPECT_EQ(ended.out, "");
    EXPECT_THAT(ended.err, StartsWith("error: " + c.message + "\n\nOmbrelux 1.1.3"));
    EXPECT_THAT(ended.err, HasSubstr("Usage: OmbreluxCLI <command>"));
  }
}

TEST(Usage, WhatIsAskedForGoesToStandardOutput) {
  const Ended help = runCli({"--help"});
  EXPECT_EQ(help.exitCode, 0);
  EXPECT_EQ(help.err, "");
  EXPECT_EQ(help.out, runCli({"help"}).out);
  const Ended nothing = runCli({});
  EXPECT_EQ(nothing.exitCode, 2);
  EXPECT_EQ(nothing.out, "");
  EXPECT_EQ(nothing.err, help.out);
  EXPECT_EQ(runCli({"version"}).out, "Ombrelux 1.1.3 (Vulkan)\n");
  for (const char* version : {"version", "--version"}) {
    EXPECT_THAT(runCli({version, "--verbose"}).out,
                MatchesRegex("Ombrelux 1\\.1\\.3 \\(Vulkan\\)\ncompiler: [^ ]+ [0-9.]+ for Linux [^ ]+, [^\n]+\n"
                             "media: on \\(libavformat [0-9.]+, .*, SQLite [0-9.]+, Ceres [0-9.]+\\)\n"
                             "window: o[^\n]+\nVulkan headers: 1\\.[0-9.]+\nGPU kernels: [1-9][0-9]+\n"));
  }

  TempFolder folder;
  const Ended instructions = runCli({"instructions"});
  EXPECT_EQ(runCli({"instructions", toUtf8(folder / "advice.txt")}).out, "");
  EXPECT_EQ(readFile(folder / "advice.txt"), instructions.out);
  const Ended refused = runCli({"instructions", toUtf8(folder / "no/advice.txt")});
  EXPECT_EQ(refused.exitCode, 1);
  EXPECT_EQ(refused.err, "error: could not write " + toUtf8(folder / "no/advice.txt") + "\n");
}

TEST(Usage, StreamsAndFilesThatCannotBeWrittenAreSaidOnce) {
  const auto shell = [](const char* script, const std::string& argument) {
    return ChildProgram("/bin/sh", {"-c", script, OMBRELUX_CLI, argument}).wait();
  };
  const Ended closed = shell(R"(exec "$0" help >&-)", "");
  EXPECT_EQ(closed.exitCode, 1);
  EXPECT_EQ(closed.err, "error: could not write to standard output\n");

  TempFolder folder;
  const std::string advice = toUtf8(writeFile(folder / "advice.txt", "old"));
  EXPECT_EQ(shell(R"(ulimit -f 1; exec "$0" instructions "$1")", advice).exitCode, 1);
  EXPECT_EQ(readFile(folder / "advice.txt"), "old");
  EXPECT_EQ(runCli({"train", "no\n\x1b[31mé"}).err, "error: No such file or folder: no??[31mé\n");
}

TEST(Usage, WithoutADisplayTheWindowSaysSoInOneSentence) {
  TempFolder folder;
  writeFile(folder / "photos/a.jpg", "");
  const std::string home = "XDG_DATA_HOME=" + toUtf8(folder / "home");
  for (const std::vector<std::string>& arguments : {std::vector<std::string>{}, {toUtf8(folder / "photos")}}) {
    const Ended ended = ChildProgram(OMBRELUX_DESKTOP, arguments, {"DISPLAY=", "WAYLAND_DISPLAY=", home}).wait();
    EXPECT_EQ(ended.exitCode, 1);
    EXPECT_EQ(ended.out, "");
    EXPECT_THAT(ended.err, ::testing::MatchesRegex("error: (No window can be opened here|This program was built "
                                                   "without its window)[^\n]*\n"));
  }
  EXPECT_FALSE(std::filesystem::exists(folder / "photos_ombrelux"));
  EXPECT_EQ(ChildProgram(OMBRELUX_DESKTOP, {"trian"}).wait().exitCode, 2);
}

}  // namespace
}  // namespace quor::test
