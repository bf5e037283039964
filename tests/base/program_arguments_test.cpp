// What a child is handed, and that nothing of it is left. The child is this program itself, which every system can run.
#include <gmock/gmock.h>

#include <chrono>
#include <fstream>
#include <thread>

#include "base/files/paths.h"
#include "base/process/child_process.h"
#include "base/process/terminal.h"
#include "support/own_program.h"
#include "support/temp_folder.h"

namespace quor {
namespace {

using test::TempFolder;

ChildCommand ownTest(const std::string& name, const std::vector<std::string>& more = {}) {
  ChildCommand command;
  command.program = test::ownProgram();
  command.arguments = {"--gtest_also_run_disabled_tests", "--gtest_filter=AsChild." + name};
  command.arguments.insert(command.arguments.end(), more.begin(), more.end());
  return command;
}

TEST(AsChild, DISABLED_PrintsWhatItWasGiven) {
  useUtf8Streams();
  for (const std::string& argument : test::ownArguments()) std::printf("[%s]\n", argument.c_str());
  std::printf("variable %s\n", environmentVariable("Ombrelux_test").value_or("none").c_str());
  std::exit(57);
}

TEST(AsChild, DISABLED_HoldsAFile) {
  const std::ofstream file(fromUtf8(environmentVariable("OMBRELUX_HELD").value()));
  std::printf("held\n");
  std::fflush(stdout);
  std::this_thread::sleep_for(std::chrono::minutes(2));
}

TEST(AsChild, DISABLED_StartsTheHolder) {
  runChildProcess(
      ownTest("DISABLED_HoldsAFile"),
      [](std::string_view line) {
        std::printf("%s\n", std::string(line).c_str());
        std::fflush(stdout);
      },
      [] { return false; });
}

TEST(ProgramArguments, ArriveAsTheyWereGiven) {
  const std::vector<std::string> given = {"a b",      "",       "quo\"te", "back\\slash", "end\\",     "blank end\\",
                                          "\\\\\"\\", "été 写", "%PATH%",  "a\tb",        "C:\\a b\\", "& | > ^ !"};
  ChildCommand command = ownTest("DISABLED_PrintsWhatItWasGiven", given);
  command.environment = {{"OMBRELUX_TEST", "wértx"}, {"Ombrelux_test", "wért"}};
  std::vector<std::string> lines;
  const ChildResult result = runChildProcess(
      command, [&](std::string_view line) { lines.emplace_back(line); }, [] { return false; });
  EXPECT_EQ(result.exitCode, 57);
  for (const std::string& argument : given) EXPECT_THAT(lines, testing::Contains("[" + argument + "]"));
  EXPECT_THAT(lines, testing::Contains("variable wért"));
}

TEST(ProgramArguments, ACancelledChildIsGoneWithAllThatItStarted) {
  const TempFolder folder;
  const auto held = folder / "held";
  ChildCommand command = ownTest("DISABLED_StartsTheHolder");
  command.environment = {{"OMBRELUX_HELD", toUtf8(held)}};
  bool holds = false;
  const ChildResult result = runChildProcess(
      command, [&](std::string_view line) { holds |= line == "held"; }, [&] { return holds; });
  EXPECT_TRUE(result.cancelled);
  EXPECT_TRUE(holds);
  EXPECT_TRUE(std::filesystem::remove(held));  // Windows lets nobody remove a file that is open
}

TEST(ProgramArguments, AProgramThatIsNoneSaysWhy) {
  const TempFolder folder;
  ChildCommand command;
  for (const auto& program : {folder / "none.exe", test::writeFile(folder / "text.exe", "no program")}) {
    command.program = program;
    const std::string reason = test::thrownText([&] {
      runChildProcess(
          command, [](std::string_view) {}, [] { return false; });
    });
    EXPECT_THAT(reason, testing::Not(testing::AnyOf("no exception", ""))) << program;
  }
}

}  // namespace
}  // namespace quor
