#include "base/process/tool_finder.h"

#include <gtest/gtest.h>

#include "base/files/paths.h"
#include "base/process/child_process.h"
#include "support/scoped_environment.h"
#include "support/scripts.h"

namespace quor::test {
namespace {

namespace fs = std::filesystem;

std::string shown(const std::optional<ToolLocation>& tool) {
  return tool ? tool->source + " " + toUtf8(tool->executable) : "nothing";
}

class ToolFinder : public testing::Test {
 protected:
  std::string text(const char* name) const { return toUtf8(folder_ / name); }

  TempFolder folder_;
  ScopedEnvironment home_{"HOME", (folder_ / "home").c_str()};
  // Empty entries name no folder, least of all the one that happens to be the current one.
  ScopedEnvironment path_{"PATH", (":" + text("none") + "::" + text("path") + ":").c_str()};
};

TEST_F(ToolFinder, TakesTheFirstPlaceThatHasOne) {
  EXPECT_EQ(shown(findFfmpeg(text("none"))), "nothing");
  writeScript(folder_ / "home/.local/bin/ffmpeg", "");
  EXPECT_EQ(shown(findFfmpeg("")), "nothing");

  writeScript(folder_ / "home/.local/bin/colmap", "");
  EXPECT_EQ(shown(findColmap("")), "installed " + text("home/.local/bin/colmap"));
  writeScript(folder_ / "path/colmap", "");
  EXPECT_EQ(shown(findColmap("")), "PATH " + text("path/colmap"));
  writeScript(folder_ / "own/bin/colmap", "");
  EXPECT_EQ(shown(findColmap(text("own"))), "settings " + text("own/bin/colmap"));
}

TEST_F(ToolFinder, PassesOverWhatIsNoProgram) {
  writeScript(folder_ / "path/colmap", "");
  const std::string found = "PATH " + text("path/colmap");
  writeFile(folder_ / "own/colmap", "not to be run");
  fs::create_directories(folder_ / "own/bin/colmap");
  for (const char* configured : {"own", "own/colmap", "gone"}) EXPECT_EQ(shown(findColmap(text(configured))), found);
  EXPECT_EQ(shown(findColmap(std::string(10'000, 'x'))), found);
}

TEST_F(ToolFinder, ResolvesWhatTheUserWrote) {
  writeScript(folder_ / "path/my-colmap", "");
  EXPECT_EQ(shown(findColmap("my-colmap")), "settings " + text("path/my-colmap"));
  EXPECT_EQ(shown(findFfmpeg("./my-colmap")), "nothing");
  const fs::path relative = fs::relative(folder_ / "path/my-colmap");
  const std::optional<ToolLocation> found = findColmap(toUtf8(relative));
  ASSERT_TRUE(found);
  EXPECT_TRUE(found->executable.is_absolute());
}

// Its name is not run by itself: the test below runs it in a copy of this program.
TEST(BundledTool, DISABLED_Shown) {
  std::printf("%s\n", shown(findColmap("")).c_str());
}

TEST_F(ToolFinder, PrefersTheOneBesideTheProgram) {
  const fs::path program = folder_ / "app/program";
  writeScript(folder_ / "path/colmap", "");
  writeScript(folder_ / "app/tools/colmap/bin/colmap", "");
  fs::copy_file(fs::read_symlink("/proc/self/exe"), program);
  const std::string expected = "bundled " + text("app/tools/colmap/bin/colmap");
  bool seen = false;
  runChildProcess(
      {program, {"--gtest_filter=BundledTool.*", "--gtest_also_run_disabled_tests"}, {}},
      [&](std::string_view line) { seen |= line == expected; }, [] { return false; });
  EXPECT_TRUE(seen);
}

}  // namespace
}  // namespace quor::test
