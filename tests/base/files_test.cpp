#include <gtest/gtest.h>

#include <vector>

#include "base/failures.h"
#include "base/files/atomic_file.h"
#include "base/files/file_lock.h"
#include "base/files/paths.h"
#include "base/files/temporary_file.h"
#include "base/split_mix64.h"
#include "support/platform.h"
#include "support/scoped_environment.h"
#include "support/temp_folder.h"

namespace quor {
namespace {

using test::readFile;
using test::ScopedEnvironment;
using test::TempFolder;
using test::thrownText;
using test::writeFile;

bool isThere(const std::filesystem::path& path) {
  return exists(symlink_status(path));
}

TEST(TemporaryFile, IsReadWhereItWasWrittenAndLeavesNothing) {
  const TempFolder folder;
  {
    TemporaryFile file(folder.path()), other(folder.path());
    file.write("defg", 4, 3);
    file.write("abc", 3, 0);
    other.write("ABC", 3, 0);
    char text[8] = {};
    file.read(text, 5, 1);
    EXPECT_STREQ(text, "bcdef");
    EXPECT_EQ(thrownText([&] { file.read(text, 5, 3); }), "the file is too short");
    EXPECT_EQ(thrownText([&] { file.read(text, 1, 100); }), "the file is too short");
    EXPECT_EQ(is_empty(folder.path()), !test::kWindows) << "where it can, it has no name while it is in use either";
  }
  EXPECT_TRUE(is_empty(folder.path()));
  EXPECT_NE(thrownText([&] { TemporaryFile(folder / "none"); }), "no exception");
}

TEST(AtomicFile, ReplacesOnlyWhenCommitted) {
  const TempFolder folder;
  const auto target = writeFile(folder / "scene.ply", "old");
  {
    AtomicFile file(target);
    file.stream() << "new";
    EXPECT_EQ(readFile(target), "old");
    EXPECT_TRUE(isThere(folder / "scene.ply.partial"));
  }
  EXPECT_FALSE(isThere(folder / "scene.ply.partial"));

  AtomicFile file(target);
  file.stream() << "new";
  file.commit();
  EXPECT_EQ(readFile(target), "new");
  EXPECT_FALSE(isThere(folder / "scene.ply.partial"));
}

TEST(AtomicFile, SaysWhatFailedAndLeavesTheTarget) {
  const TempFolder folder;
  const auto lost = folder / "no such folder/scene.ply";
  EXPECT_EQ(thrownText([&] { AtomicFile file(lost); }), "Cannot write " + toUtf8(lost));

  const auto target = writeFile(folder / "scene.ply", "old");
  // Small enough for the stream's buffer, so that only the last flush meets the full disk. Windows has none.
  for (const size_t bytes : test::kWindows ? std::vector<size_t>() : std::vector<size_t>{10, size_t{1} << 20}) {
    std::filesystem::create_symlink("/dev/full", folder / "scene.ply.partial");
    const auto write = [&] {
      AtomicFile file(target);
      file.stream() << std::string(bytes, 'x');
      file.commit();
    };
    EXPECT_EQ(thrownText(write), "Writing " + toUtf8(target) + " failed (disk full?)");
    std::filesystem::create_symlink("/dev/full", folder / "scene.ply.partial");
    EXPECT_THROW(write(), DiskFull);
    EXPECT_EQ(readFile(target), "old");
    EXPECT_FALSE(isThere(folder / "scene.ply.partial"));
  }

  std::filesystem::create_directories(folder / "taken");
  AtomicFileTexts texts;
  texts.cannotReplace = "Could not replace ";
  AtomicFile file(folder / "taken", texts);
  const std::string expected = "Could not replace " + toUtf8(folder / "taken") + ": ";
  const std::string thrown = thrownText([&] { file.commit(); });
  EXPECT_TRUE(thrown.starts_with(expected) && thrown.size() > expected.size()) << thrown;
  EXPECT_TRUE(std::filesystem::is_directory(folder / "taken"));
}

TEST(FileLock, IsHeldByOneAndLeavesNothing) {
  const TempFolder folder;
  const auto file = folder / "lock";
  {
    std::optional<FileLock> first = FileLock::tryAcquire(file);
    ASSERT_TRUE(first);
    EXPECT_TRUE(isThere(file));
    EXPECT_FALSE(FileLock::tryAcquire(file));
    FileLock moved = *std::move(first);
    first.reset();
    EXPECT_FALSE(FileLock::tryAcquire(file));
  }
  EXPECT_FALSE(isThere(file));
  writeFile(file, "left by a program that was killed");
  EXPECT_TRUE(FileLock::tryAcquire(file));
  EXPECT_TRUE(FileLock::tryAcquire(folder / "no such folder/lock"));  // nothing to lock, nothing in the way
}

TEST(Paths, UserDataFolderFollowsTheEnvironment) {
  if (test::kWindows) GTEST_SKIP() << "Windows tells the folder itself";
  const ScopedEnvironment home("HOME", "/home/é");
  {
    const ScopedEnvironment data("XDG_DATA_HOME", "/data");
    EXPECT_EQ(applicationLogFile(), "/data/Ombrelux/logs/Ombrelux.log");
  }
  for (const char* none : {static_cast<const char*>(nullptr), "", "relative"}) {
    const ScopedEnvironment data("XDG_DATA_HOME", none);
    EXPECT_EQ(userDataFolder(), "/home/é/.local/share/Ombrelux");
    const ScopedEnvironment homeless("HOME", none);
    EXPECT_EQ(userDataFolder(), std::filesystem::temp_directory_path() / "Ombrelux");
  }
}

// The algorithm's published sequence for seed 1234567; a checkpoint's state word must mean the same everywhere.
TEST(SplitMix64, GivesThePublishedSequenceAndGoesOnFromItsState) {
  SplitMix64 random(1234567);
  EXPECT_EQ(random.next(), 6457827717110365317u);
  EXPECT_EQ(random.next(), 3203168211198807973u);
  SplitMix64 resumed(random.state());
  EXPECT_EQ(resumed.next(), random.next());
  EXPECT_EQ(SplitMix64::fromSeed(0).state(), 0xa5a55a5au);
}

}  // namespace
}  // namespace quor
