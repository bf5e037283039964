// What the program asks of the desktop, with scripts in the place of the desktop's programs.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>

#include "base/desktop/desktop_notification.h"
#include "base/desktop/message_box.h"
#include "base/desktop/open_folder.h"
#include "base/desktop/wake_lock.h"
#include "support/scoped_environment.h"
#include "support/scripts.h"
#include "support/wait_until.h"

namespace quor {
namespace {

using test::readFile;
using test::ScopedEnvironment;
using testing::EndsWith;
using testing::HasSubstr;

class DesktopPrograms : public testing::Test {
 protected:
  // Writes its arguments to a file, one a line, before it does anything else.
  void install(const char* program, const std::string& body) {
    test::writeScript(folder_ / "bin" / program,
                      "printf '%s\\n' \"$@\" > '" + toUtf8(folder_ / program) + "'\n" + body + "\n");
  }
  bool called(const char* program) const { return std::filesystem::exists(folder_ / program); }
  std::string argumentsOf(const char* program) const { return readFile(folder_ / program); }
  static bool show(const std::string& text) {
    return showMessageBox("Ombrelux", text, [] { return false; });
  }

  const test::TempFolder folder_;
  const ScopedEnvironment path_{"PATH", toUtf8(folder_ / "bin").c_str()};
  const ScopedEnvironment display_{"DISPLAY", ":77"}, wayland_{"WAYLAND_DISPLAY", nullptr};
};

TEST_F(DesktopPrograms, AFolderIsShownByAProgramThatLivesOnAndAFailureIsNoticed) {
  EXPECT_FALSE(openFolder(folder_.path()));  // there is no such program
  install("xdg-open", "exit 4");
  EXPECT_FALSE(openFolder(folder_.path()));
  install("xdg-open", "");
  EXPECT_FALSE(openFolder(folder_ / "gone"));
  EXPECT_TRUE(openFolder(folder_.path()));
  EXPECT_EQ(argumentsOf("xdg-open"), toUtf8(folder_.path()) + "\n");
  const std::string late = "'" + toUtf8(folder_ / "late") + "'", go = "'" + toUtf8(folder_ / "go") + "'";
  install("xdg-open", "until [ -e " + go + " ]; do /bin/sleep 0.01; done; echo done > " + late);
  EXPECT_TRUE(openFolder(folder_.path()));       // does not wait for its end
  EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1);  // it is no child of this program
  test::writeFile(folder_ / "go", "");
  EXPECT_TRUE(test::waitUntil([&] { return called("late"); }));
}

TEST_F(DesktopPrograms, AMessageBoxIsShownByWhicheverProgramThereIs) {
  EXPECT_FALSE(show("Nobody can show this."));
  install("xmessage", "exit 0");
  EXPECT_TRUE(show("No <b>Vulkan</b> & nothing else."));
  EXPECT_THAT(argumentsOf("xmessage"), EndsWith("\nNo <b>Vulkan</b> & nothing else.\n"));
  install("zenity", "exit 134");  // breaks: the next one is asked
  install("kdialog", "exit 1");   // closed by Escape
  EXPECT_TRUE(show("Again."));
  EXPECT_THAT(argumentsOf("kdialog"), HasSubstr("\n--error\nAgain.\n"));
  EXPECT_THAT(argumentsOf("xmessage"), EndsWith("\nNo <b>Vulkan</b> & nothing else.\n"));
  install("zenity", "exec /bin/sleep 1000");
  EXPECT_TRUE(showMessageBox("Ombrelux", "Asked to end meanwhile.", [&] { return called("zenity"); }));
  const ScopedEnvironment noDisplay("DISPLAY", nullptr);
  EXPECT_FALSE(show("There is no screen."));
}

TEST_F(DesktopPrograms, ANotificationCarriesItsWords) {
  EXPECT_FALSE(showDesktopNotification("Title", "Text"));
  install("notify-send", "");
  EXPECT_TRUE(showDesktopNotification("Ready", "--not an option"));
  EXPECT_THAT(argumentsOf("notify-send"), EndsWith("\n--\nReady\n--not an option\n"));
}

TEST_F(DesktopPrograms, AWakeLockHoldsItsProgramAsLongAsItLives) {
  { const WakeLock without("Nothing can be asked for it."); }
  const std::string pid = toUtf8(folder_ / "pid");
  install("systemd-inhibit", "echo $$ > '" + pid + "'; exec /bin/sleep 1000");
  install("sleep", "");
  pid_t holder = 0;
  {
    const WakeLock lock("A scene is being built");
    ASSERT_TRUE(test::waitUntil([&] { return called("pid") && readFile(pid).ends_with('\n'); }));
    holder = std::stoi(readFile(pid));
    EXPECT_EQ(kill(holder, 0), 0);
    EXPECT_THAT(argumentsOf("systemd-inhibit"), HasSubstr("--why=A scene is being built\n"));
  }
  EXPECT_TRUE(test::waitUntil([&] { return kill(holder, 0) != 0; }));
}

}  // namespace
}  // namespace quor
