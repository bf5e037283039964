#include "ui/models/files/file_dialog.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "support/scoped_environment.h"
#include "support/scripts.h"
#include "ui/models/files/file_browser.h"
#include "ui/pump.h"

namespace quor::ui {
namespace {

namespace fs = std::filesystem;

using test::pump;
using test::readFile;
using test::ScopedEnvironment;
using test::TempFolder;
using test::writeFile;
using test::writeScript;
using testing::ElementsAre;
using testing::HasSubstr;

using Paths = std::vector<fs::path>;

// With scripts in the place of the desktop's programs.
class DesktopDialog : public testing::Test {
 protected:
  // Each argument ends up on a line of its own.
  void install(const char* program, const std::string& body) {
    writeScript(folder_ / "bin" / program,
                "printf '%s\\n' \"$@\" > '" + toUtf8(folder_ / program) + "'\n" + body + "\n");
  }
  std::string argumentsOf(const char* program) const { return readFile(folder_ / program); }

  std::optional<Paths> ask(const DialogRequest& request) {
    answer_.reset();
    dialog_.ask(request, [&](const Paths& paths) { answer_ = paths; });
    EXPECT_TRUE(pump(dialog_, [&] { return answer_ || dialog_.browser(); }));
    return answer_;
  }

  std::optional<Paths> answer_;  // may come after ask() has ended
  const TempFolder folder_;
  const ScopedEnvironment path_{"PATH", toUtf8(folder_ / "bin").c_str()};
  FileDialog dialog_{folder_ / "start"};
};

TEST_F(DesktopDialog, GivesWhatWasChosenAndGoesOnFromThere) {
  install("zenity", "echo 'Gtk-Message: mapped without a parent' >&2; echo '/photos/a b.jpg'; echo /photos/é.png");
  EXPECT_EQ(ask({FileDialog::Kind::OpenFiles, "Add media", {"jpg", "png"}, {}, {}}),
            (Paths{"/photos/a b.jpg", fromUtf8("/photos/é.png")}));
  const std::string arguments = argumentsOf("zenity");
  EXPECT_THAT(arguments, HasSubstr("--filename=" + toUtf8(folder_ / "start") + "/\n"));
  EXPECT_THAT(arguments, HasSubstr("*.jpg *.JPG *.png *.PNG\n"));
  EXPECT_EQ(dialog_.folder(), "/photos");

  install("zenity", "echo /out");
  EXPECT_EQ(ask({FileDialog::Kind::OpenFolder, "Choose", {}, {}, {}}), Paths{"/out"});
  EXPECT_THAT(argumentsOf("zenity"), HasSubstr("--filename=/photos/\n"));
}

TEST_F(DesktopDialog, GivesFilesToSaveTheirExtensionUnlessThatWouldReplaceOne) {
  install("zenity", "echo '" + toUtf8(folder_ / "scene") + "'");
  const DialogRequest request{FileDialog::Kind::SaveFile, "Export", {"ply", "splat"}, "scene.ply", {}};
  EXPECT_EQ(ask(request), Paths{folder_ / "scene.ply"});
  writeFile(folder_ / "scene.ply", "");
  EXPECT_EQ(ask(request), Paths{folder_ / "scene"});
}

TEST_F(DesktopDialog, GivingUpIsAnAnswerAndAFailureLeadsToTheBrowserForGood) {
  install("zenity", "echo 'Gtk-WARNING: unknown theme' >&2; exit 1");
  EXPECT_EQ(ask({}), Paths());

  install("zenity", "echo 'Gtk-WARNING **: cannot open display: ' >&2; exit 1");
  install("kdialog", "echo /chosen");
  EXPECT_EQ(ask({FileDialog::Kind::OpenFiles, "Open", {"ply"}, {}, {}}), Paths{"/chosen"});

  install("kdialog", "exit 134");
  EXPECT_EQ(ask({}), std::nullopt);
  ASSERT_NE(dialog_.browser(), nullptr);
  dialog_.browser()->giveUp();
  ASSERT_TRUE(pump(dialog_, [&] { return !dialog_.open(); }));
  install("zenity", "echo /chosen");
  EXPECT_EQ(ask({}), std::nullopt);
}

TEST_F(DesktopDialog, GoesAwayWithTheWindow) {
  install("zenity", "echo started >> '" + toUtf8(folder_ / "log") + "'; exec sleep 100");
  const ScopedEnvironment withSleep("PATH", (toUtf8(folder_ / "bin") + ":/bin:/usr/bin").c_str());
  {
    FileDialog dialog(folder_.path());
    dialog.ask({}, [](const Paths&) { FAIL(); });
    ASSERT_TRUE(pump(dialog, [&] { return fs::exists(folder_ / "log"); }));
    dialog.ask({}, [](const Paths&) { FAIL(); });  // one at a time
  }
  EXPECT_EQ(readFile(folder_ / "log"), "started\n");
}

TEST(NaturalOrder, CountsAndIgnoresCase) {
  std::vector<std::string> names = {"view10", "View2", "a", "view02", "B", "view2b", "写", "é", "view"};
  std::ranges::sort(names, naturalLess);
  EXPECT_THAT(names, ElementsAre("a", "B", "view", "View2", "view02", "view2b", "view10", "é", "写"));
}

class Browser : public testing::Test {
 protected:
  Browser() {
    for (const char* name : {"b2.jpg", "b10.JPG", "notes.txt", ".hidden.jpg", "set/x.jpg", "empty dir/.keep"}) {
      writeFile(folder_ / name, "abc");
    }
  }
  FileBrowser& open(DialogRequest request) {
    if (request.startFolder.empty()) request.startFolder = folder_.path();
    browser_.emplace(std::move(request));
    settle();
    return *browser_;
  }
  void settle() {
    ASSERT_TRUE(pump(*browser_, [&] { return !browser_->loading(); }));
  }
  std::vector<std::string> names() const {
    std::vector<std::string> names;
    for (const FolderEntry& entry : browser_->entries()) names.push_back(entry.name + (entry.isFolder ? "/" : ""));
    return names;
  }

  const TempFolder folder_;
  std::optional<FileBrowser> browser_;
};

TEST_F(Browser, ShowsWhatCanBeChosen) {
  FileBrowser& browser = open({DialogKind::OpenFiles, "", {"jpg"}, "", folder_ / "set/gone/deeper"});
  EXPECT_EQ(browser.folder(), folder_ / "set");
  browser.goUp();
  settle();
  EXPECT_THAT(names(), ElementsAre("empty dir/", "set/", "b2.jpg", "b10.JPG"));
  browser.showHidden(true);
  browser.showAllFiles(true);
  EXPECT_THAT(names(), ElementsAre("empty dir/", "set/", ".hidden.jpg", "b2.jpg", "b10.JPG", "notes.txt"));

  browser.pathText() = "nowhere";
  browser.goToPathText();
  settle();
  EXPECT_THAT(browser.message(), HasSubstr("There is no folder "));
  EXPECT_EQ(browser.folder(), folder_.path());
  browser.pathText() = toUtf8(folder_ / "set") + "/";
  browser.goToPathText();
  settle();
  EXPECT_THAT(names(), ElementsAre("x.jpg"));
}

TEST_F(Browser, ChoosesFilesSinglyByRangeAndOneByOne) {
  FileBrowser& browser = open({DialogKind::OpenFiles, "", {"jpg", "txt"}, "", {}});
  EXPECT_THAT(browser.whyNotAccept(), HasSubstr("Select a file"));
  browser.accept();
  EXPECT_FALSE(browser.answer());
  browser.select(2);
  browser.select(4, false, true);
  browser.select(3, true);
  browser.accept();
  EXPECT_EQ(browser.answer(), (Paths{folder_ / "b2.jpg", folder_ / "notes.txt"}));

  FileBrowser& folders = open({DialogKind::OpenFolder, "", {}, "", {}});
  folders.newFolderName() = "new";
  folders.createFolder();
  settle();
  EXPECT_THAT(names(), ElementsAre("empty dir/", "new/", "set/"));
  folders.accept();
  EXPECT_EQ(folders.answer(), Paths{folder_ / "new"});
}

TEST_F(Browser, AsksBeforeAFileIsReplaced) {
  FileBrowser& browser = open({DialogKind::SaveFile, "", {"txt"}, "fresh", {}});
  browser.fileName() = "notes";
  browser.accept();
  EXPECT_EQ(browser.toBeReplaced(), folder_ / "notes.txt");
  browser.replace(false);
  EXPECT_FALSE(browser.answer());
  browser.fileName() = "../notes";
  EXPECT_THAT(browser.whyNotAccept(), HasSubstr("cannot be the name"));
  browser.fileName() = "fresh";
  browser.accept();
  EXPECT_EQ(browser.answer(), Paths{folder_ / "fresh.txt"});
}

}  // namespace
}  // namespace quor::ui
