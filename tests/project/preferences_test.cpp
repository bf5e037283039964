#include "project/preferences.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "base/files/paths.h"
#include "support/temp_folder.h"

namespace quor::test {
namespace {

using ::testing::ElementsAre;
using ::testing::SizeIs;
using ::testing::StartsWith;

TEST(Preferences, AreWrittenWholeAndReadBack) {
  TempFolder folder;
  const std::filesystem::path file = folder / "Ombrelux/settings.json";
  Preferences preferences;
  preferences.colmapPath = "/opt/colmap 写";
  preferences.recentProjects = {"/b", "/a"};
  preferences.visualizer = false;
  preferences.uiScale = 1.1F;
  preferences.save(file);
  EXPECT_EQ(readFile(file), R"({
  "colmapPath": "/opt/colmap 写",
  "ffmpegPath": "",
  "lastDirectory": "",
  "recentProjects": [
    "/b",
    "/a"
  ],
  "deviceIndex": -1,
  "visualizer": false,
  "uiScale": 1.1
}
)");
  preferences.lastDirectory = "/no utf-8: \xff";
  preferences.save(file);
  const Preferences read = Preferences::load(file);
  EXPECT_EQ(read.colmapPath, preferences.colmapPath);
  EXPECT_EQ(read.lastDirectory, "/no utf-8: \uFFFD");
  EXPECT_EQ(read.recentProjects, preferences.recentProjects);
  EXPECT_EQ(read.visualizer, false);
  EXPECT_EQ(read.uiScale, 1.1F);

  std::filesystem::create_directory(folder / "folder.json");
  EXPECT_THAT(thrownText([&] { preferences.save(folder / "folder.json"); }),
              StartsWith("Cannot replace " + toUtf8(folder / "folder.json") + ": "));
}

TEST(Preferences, KeepTheDefaultOfWhatMakesNoSense) {
  TempFolder folder;
  const auto load = [&](std::string_view text) { return Preferences::load(writeFile(folder / "settings.json", text)); };
  EXPECT_EQ(Preferences::load(folder / "none.json").deviceIndex, -1);
  EXPECT_EQ(Preferences::load(folder.path()).deviceIndex, -1);
  for (const char* text : {"", "[1]", "{\"deviceIndex\": 3", "{\"deviceIndex\": \"3\"}", "{\"deviceIndex\": null}"}) {
    EXPECT_EQ(load(text).deviceIndex, -1) << text;
  }
  const Preferences mixed = load(R"({"recentProjects": ["/a", 5], "colmapPath": 1, "deviceIndex": 2, "x": {}})");
  EXPECT_THAT(mixed.recentProjects, SizeIs(0));
  EXPECT_EQ(mixed.colmapPath, "");
  EXPECT_EQ(mixed.deviceIndex, 2);

  EXPECT_EQ(load(R"({"textSize": 1.5})").uiScale, 1.5F);
  EXPECT_EQ(load(R"({"uiScale": 2, "textSize": 1.5})").uiScale, 2.0F);
  EXPECT_EQ(load(R"({"uiScale": 0, "textSize": 1.5})").uiScale, 1.5F);
  EXPECT_EQ(load(R"({"uiScale": -1})").uiScale, 1.0F);
}

TEST(Preferences, RememberTheLatestProjectsOnce) {
  Preferences preferences;
  for (const char* project : {"a", "b", "c", "a"}) preferences.addRecent(project);
  EXPECT_THAT(preferences.recentProjects, ElementsAre("a", "c", "b"));
  for (int i = 0; i < 100; ++i) preferences.addRecent(std::to_string(i));
  EXPECT_THAT(preferences.recentProjects, SizeIs(Preferences::kMaxRecent));
  EXPECT_EQ(preferences.recentProjects.front(), "99");
}

}  // namespace
}  // namespace quor::test
