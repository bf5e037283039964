#include "app/usage.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>

#include "app/option_table.h"
#include "support/child_program.h"

namespace quor::test {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::StartsWith;

TEST(Usage, ErrorsNameWhatIsWrongBeforeTheUsageText) {
  struct Case {
    std::vector<std::string> arguments;
    std::string message;
  };
  const std::vector<Case> cases = {
      {{"run"}, "run needs a path"},
      {{"import", "--json"}, "import needs a path"},
      {{"train", "a", "b"}, "train takes one path, but was also given 'b'"},
      {{"devices", "a"}, "devices takes no path, but was given 'a'"},
      {{"run", "clip.mp4", "--frames"}, "--frames needs a value"},
      {{"train", "--foo"}, "unknown option --foo"},
      {{"--foo"}, "unknown option --foo"},
      {{"trian", "a"}, "unknown command 'trian'"},
      {{"import", "a", "--from", "sparse"}, "--from is an option of train, not of import"},
      {{"import", "a", "--frames", "9"},
       "--frames is an option of run and train of a project made from media, not of import"},
      {{"mcp", "--sh", "1"},
       "--sh is an option of run, train and import, not of mcp: its client sends settings with each call"},
      {{"train", "a", "--from", "train"}, "--from takes frames or sparse, not 'train'"},
      {{"train", "a", "--technique", "mcmc2"}, "unknown technique 'mcmc2' (vanilla or mcmc)"},
      {{"train", "a", "--matcher", "Sequential"}, "unknown matcher 'Sequential'"},
      {{"train", "a", "--mapper", "Global"}, "--mapper takes incremental or global"},
      {{"run", "a", "--kind", "photo"}, "--kind takes images, video, video360 or dualfisheye, not 'photo'"},
      {{"train", "a", "--iterations", "1e4"}, "--iterations takes a whole number from 1 up, not '1e4'"},
      {{"train", "a", "--iterations", "99999999999"}, "--iterations takes a whole number from 1 up, not '99999999999'"},
      {{"train", "a", "--budget", "-1"}, "--budget takes a whole number from 0 to 1000000000000, not '-1'"},
      {{"train", "a", "--sh", "4"}, "--sh takes a whole number from 0 to 3, not '4'"},
      {{"train", "a", "--crop-edges", "1.5x"}, "--crop-edges takes a fraction from 0 to 0.375, not '1.5x'"},
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

// A value that the option takes and that is not the default.
std::string sampleOf(const OptionSpec& option) {
  static const std::map<std::string, std::string> own = {
      {"--out", "o"},    {"--from", "sparse"}, {"--kind", "video"},         {"--colmap", "c"},
      {"--ffmpeg", "f"}, {"--device", "0"},    {"--camera-model", "RADIAL"}};
  if (const auto found = own.find(option.name); found != own.end()) return found->second;
  if (const auto limits = limitsOf(*option.setting)) {
    return limits->whole ? "1" : limits->least > 1 ? "180" : "0.25";
  }
  const std::vector<ChoiceWord>& words = std::get<ChoiceSetting>(option.setting->value).words;
  return words[valueOf(*option.setting, {}) == words[0].name ? 1 : 0].name;
}

TEST(Usage, EveryOptionIsAppliedOrRefusedWithItsPlaceOnEveryCommand) {
  const std::string usage = usageText(FrontEnd::CommandLineOnly);
  for (const OptionGroup& group : optionGroups()) {
    for (const OptionSpec& option : group.options) {
      EXPECT_THAT(usage, HasSubstr("\n  " + option.name + " "));
      std::vector<std::string> arguments = {option.name};
      if (!option.value.empty()) arguments.push_back(sampleOf(option));
      const Options parsed = parseOptions(arguments);
      for (Places here = kOnRun; here <= kOnInstructions; here *= 2) {
        if ((option.places & here) != 0) {
          EXPECT_NO_THROW(refuseMisplaced(parsed, here)) << option.name;
        } else {
          EXPECT_THAT(thrownText([&] { refuseMisplaced(parsed, here); }),
                      AllOf(StartsWith(option.name + " is an option of "), HasSubstr(", not of ")));
        }
      }
      if (!option.setting) continue;
      Settings settings;
      if (arguments.size() == 1) readSetting(*option.setting, !parsed.settings.begin()->begin()->get<bool>(), settings);
      const Json before = valueOf(*option.setting, settings);
      parsed.applyTo(settings);
      EXPECT_NE(valueOf(*option.setting, settings), before) << option.name;
    }
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

  TempFolder folder;
  const Ended instructions = runCli({"instructions"});
  EXPECT_EQ(instructions.exitCode, 0);
  const Ended written = runCli({"instructions", toUtf8(folder / "advice.txt")});
  EXPECT_EQ(written.exitCode, 0);
  EXPECT_EQ(written.out, "");
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
