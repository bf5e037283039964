#include "base/process/tool_finder.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "base/files/paths.h"
#include "base/process/child_process.h"
#include "base/process/tool_places.h"
#include "support/own_program.h"
#include "support/platform.h"
#include "support/scoped_environment.h"
#include "support/scripts.h"

namespace quor::test {
namespace {

namespace fs = std::filesystem;

std::string withSlashes(const fs::path& path) {
  std::string text = toUtf8(path);
  if (kWindows) std::replace(text.begin(), text.end(), '\\', '/');
  return text;
}

// Without the ".exe" of Windows.
std::string shown(const std::optional<ToolLocation>& tool) {
  if (!tool) return "nothing";
  std::string path = withSlashes(tool->executable);
  if (path.ends_with(".exe")) path.resize(path.size() - 4);
  return tool->source + " " + path;
}

class ToolFinder : public testing::Test {
 protected:
  std::string text(const char* name) const { return toUtf8(folder_ / name); }
  std::string found(const char* source, const char* name) const {
    return std::string(source) + " " + withSlashes(folder_ / name);
  }
  void addProgram(const char* name) const { writeScript(folder_ / programFileName(name), ""); }

  TempFolder folder_;
  ScopedEnvironment home_{kWindows ? "LOCALAPPDATA" : "HOME", text("home").c_str()};
  const std::string separator_ = kWindows ? ";" : ":";
  // Empty entries name no folder, least of all the one that happens to be the current one.
  ScopedEnvironment path_{"PATH",
                          (separator_ + text("none") + separator_ + separator_ + text("path") + separator_).c_str()};
};

TEST_F(ToolFinder, TakesTheFirstPlaceThatHasOne) {
  const char* installed = kWindows ? "home/COLMAP-4/bin/colmap" : "home/.local/bin/colmap";
  EXPECT_EQ(shown(findFfmpeg(text("none"))), "nothing");
  addProgram(kWindows ? "home/ffmpeg/ffmpeg" : "home/.local/bin/ffmpeg");
  EXPECT_EQ(shown(findFfmpeg("")), "nothing");

  addProgram(installed);
  EXPECT_EQ(shown(findColmap("")), found("installed", installed));
  addProgram("path/colmap");
  EXPECT_EQ(shown(findColmap("")), found("PATH", "path/colmap"));
  addProgram("own/bin/colmap");
  EXPECT_EQ(shown(findColmap(text("own"))), found("settings", "own/bin/colmap"));
}

TEST_F(ToolFinder, PassesOverWhatIsNoProgram) {
  addProgram("path/colmap");
  const std::string other = found("PATH", "path/colmap");
  if (!kWindows) writeFile(folder_ / "own/colmap", "not to be run");
  fs::create_directories(folder_ / "own/bin" / programFileName("colmap"));
  for (const char* configured : {"own", "own/colmap", "gone"}) EXPECT_EQ(shown(findColmap(text(configured))), other);
  EXPECT_EQ(shown(findColmap(std::string(10'000, 'x'))), other);
}

TEST_F(ToolFinder, ResolvesWhatTheUserWrote) {
  addProgram("path/my-colmap");
  EXPECT_EQ(shown(findColmap("my-colmap")), found("settings", "path/my-colmap"));
  EXPECT_EQ(shown(findFfmpeg("./my-colmap")), "nothing");
  if (kWindows) return;  // the test may lie on another drive than the temporary folder
  const std::optional<ToolLocation> relative = findColmap(toUtf8(fs::relative(folder_ / "path/my-colmap")));
  ASSERT_TRUE(relative);
  EXPECT_TRUE(relative->executable.is_absolute());
}

// As its archive for Windows unpacks: a folder with a batch file, which sets variables and starts bin/colmap.exe.
TEST_F(ToolFinder, KnowsWhatAnArchiveUnpacksTo) {
  addProgram("tools/COLMAP-3.9-windows-cuda/bin/colmap");
  const std::string program = found("settings", "tools/COLMAP-3.9-windows-cuda/bin/colmap");
  EXPECT_EQ(shown(findColmap(text("tools"))), program);
  EXPECT_EQ(shown(findColmap(text("tools/COLMAP-3.9-windows-cuda"))), program);
  if (!kWindows) return;
  const auto start = writeFile(folder_ / "tools/COLMAP-3.9-windows-cuda/COLMAP.bat", "");
  EXPECT_EQ(shown(findColmap(toUtf8(start))), program);
  EXPECT_EQ(shown(findColmap(toUtf8(writeFile(folder_ / "other/COLMAP.bat", "")))),
            found("settings", "other/COLMAP.bat"));  // starting it says that it is a batch file

  const auto environment = startEnvironment(folder_ / "tools");
  ASSERT_EQ(environment.size(), 1u);
  EXPECT_EQ(environment[0].first, "PATH");
  EXPECT_TRUE(environment[0].second.starts_with(text("tools/bin") + ";" + text("tools/lib") + ";;"));
}

// Its name is not run by itself: the test below runs it in a copy of this program.
TEST(BundledTool, DISABLED_Shown) {
  std::printf("%s\n", shown(findColmap("")).c_str());
}

TEST_F(ToolFinder, PrefersTheOneBesideTheProgram) {
  const fs::path program = folder_ / programFileName("app/program");
  addProgram("path/colmap");
  addProgram("app/tools/colmap/bin/colmap");
  fs::copy_file(ownProgram(), program);
  const std::string expected = found("bundled", "app/tools/colmap/bin/colmap");
  bool seen = false;
  runChildProcess(
      {program, {"--gtest_filter=BundledTool.*", "--gtest_also_run_disabled_tests"}, {}},
      [&](std::string_view line) { seen |= line == expected; }, [] { return false; });
  EXPECT_TRUE(seen);
}

}  // namespace
}  // namespace quor::test
