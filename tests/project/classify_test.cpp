#include "project/classify.h"

#include <gtest/gtest.h>

#include "support/platform.h"
#include "support/temp_folder.h"

namespace quor {
namespace {

namespace fs = std::filesystem;
using test::TempFolder;
using test::writeFile;

TEST(Classify, FilesByTheirExtensionWhateverItsCase) {
  const TempFolder folder;
  const auto type = [&](const char* name) { return classifyPath(writeFile(folder / name, "")).type; };
  EXPECT_EQ(classifyPath(folder / "none.ply").type, PathClass::Missing);
  EXPECT_EQ(type("scene.PLY"), PathClass::Scene);
  EXPECT_EQ(type("checkpoint.Quor"), PathClass::Checkpoint);
  EXPECT_EQ(type("jpg"), PathClass::Nothing);

  const auto input = [&](const char* name) { return classifyPath(writeFile(folder / name, "")).inputs.at(0).kind; };
  EXPECT_EQ(input("clip.INSV"), InputKind::Video);
  EXPECT_EQ(input("one.HEIC"), InputKind::Images);
}

TEST(Classify, ProjectsComeBeforeDatasetsAndDatasetsBeforeMedia) {
  const TempFolder folder;
  EXPECT_EQ(classifyPath(folder.path()).type, PathClass::Nothing);
  writeFile(folder / "images/a.jpg", "");
  EXPECT_EQ(classifyPath(folder.path()).type, PathClass::Media);
  writeFile(folder / "sparse/0/cameras.txt", "");
  writeFile(folder / "sparse/0/images.txt", "");
  EXPECT_EQ(classifyPath(folder.path()).type, PathClass::Dataset);
  EXPECT_EQ(classifyPath(folder / "sparse/0").type, PathClass::Nothing);
  writeFile(folder / "project.json", "{}");
  EXPECT_EQ(classifyPath(folder / "").type, PathClass::Project);
  fs::create_directories(folder / "folder.ply");
  EXPECT_EQ(classifyPath(folder / "folder.ply").type, PathClass::Nothing);
}

TEST(Classify, AFolderBringsItsImagesTogetherAndEachVideo) {
  if (test::kWindows) GTEST_SKIP() << "links take rights that few have";
  const TempFolder folder;
  for (const char* name : {"trip/b.mp4", "trip/a/z.MOV", "trip/a/1.jpg", "trip/2.png", "trip/deep/er/3.TIFF",
                           "trip/notes.txt", "trip/.hidden.jpg", "trip/.cache/4.jpg", "trip/.cache/c.mp4",
                           "trip/old_ombrelux/project.json", "trip/old_ombrelux/frames/5.jpg", "elsewhere/6.jpg"}) {
    writeFile(folder / name, "");
  }
  fs::create_directories(folder / "trip/folder.jpg");
  fs::create_directory_symlink(folder / "trip", folder / "trip/a/loop");
  fs::create_directory_symlink(folder / "elsewhere", folder / "trip/outside");
  fs::create_symlink(folder / "elsewhere/6.jpg", folder / "trip/linked.jpg");
  fs::create_symlink(folder / "gone.jpg", folder / "trip/broken.jpg");
  fs::create_directories(folder / "trip/locked");
  fs::permissions(folder / "trip/locked", fs::perms::none);

  const Classification trip = classifyPath(folder / "trip");
  const MediaFiles media = findMedia(folder / "trip");
  fs::permissions(folder / "trip/locked", fs::perms::owner_all);
  EXPECT_EQ(trip.imageCount, 4u);
  ASSERT_EQ(trip.inputs.size(), 3u);
  EXPECT_EQ(trip.inputs[0].path, toUtf8(folder / "trip"));
  EXPECT_EQ(trip.inputs[1].path, toUtf8(folder / "trip/a/z.MOV"));
  EXPECT_EQ(trip.inputs[2].path, toUtf8(folder / "trip/b.mp4"));
  EXPECT_EQ(media.images, (std::vector{folder / "trip/2.png", folder / "trip/a/1.jpg", folder / "trip/deep/er/3.TIFF",
                                       folder / "trip/linked.jpg"}));
}

}  // namespace
}  // namespace quor
