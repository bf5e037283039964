#include "base/log/log_store.h"

#include <gmock/gmock.h>

#include <thread>

#include "support/matches_pattern.h"
#include "support/platform.h"
#include "support/temp_folder.h"

namespace quor {
namespace {

using test::MatchesPattern;
using test::TempFolder;

TEST(LogStore, DropsTheOldestAndKeepsCounting) {
  LogStore log(5000);
  for (int i = 1; i <= 5001; ++i) log.info(std::to_string(i));
  const std::vector<LogEntry> all = log.entriesAfter(0);
  ASSERT_EQ(all.size(), 5000u);
  EXPECT_EQ(all.front().sequence, 2u);
  EXPECT_EQ(all.back().sequence, 5001u);
  EXPECT_EQ(log.entriesAfter(4999).size(), 2u);
  EXPECT_TRUE(log.entriesAfter(5001).empty());
  EXPECT_TRUE(log.entriesAfter(UINT64_MAX).empty());
}

TEST(LogStore, FileHoldsEveryEntryAtOnceWhateverIsEchoed) {
  const TempFolder folder;
  const auto path = folder / "new/logs/Ombrelux.log";
  LogStore log(1);
  log.info("before the file");
  ASSERT_TRUE(log.openFile(path));
  log.setEcho(true, LogLevel::Warning);
  testing::internal::CaptureStderr();
  log.info("one");
  log.warning("two 100%s");
  log.error("three");
  const std::string echoed = testing::internal::GetCapturedStderr();
  EXPECT_THAT(test::readFile(path),
              MatchesPattern("[0-9:]{8} one\n[0-9:]{8} warning: two 100%s\n[0-9:]{8} error: three\n"));
  EXPECT_THAT(echoed, MatchesPattern("\\[ +[0-9]+\\.[0-9]{2}s\\] warning: two 100%s\n"
                                     "\\[ +[0-9]+\\.[0-9]{2}s\\] error: three\n"));

  LogStore next(1);
  ASSERT_TRUE(next.openFile(path));
  next.info("second start");
  EXPECT_THAT(test::readFile(path), MatchesPattern("[^\n]*one\n[^]*second start\n"));
}

TEST(LogStore, KeepsItsFileAndTheOneBeforeWithinBounds) {
  const TempFolder folder;
  const auto path = folder / "Ombrelux.log";
  const auto old = folder / "Ombrelux.log.old";
  constexpr uint64_t kMax = 1000;
  test::writeFile(path, std::string(5000, 'x'));  // of a version that knew no bound
  LogStore log(10), other(10);
  ASSERT_TRUE(log.openFile(path, kMax));
  EXPECT_EQ(std::filesystem::file_size(old), 5000u);
  ASSERT_TRUE(other.openFile(path, kMax));
  for (int i = 0; i < 100; ++i) {
    log.info("entry " + std::to_string(i));
    other.info("other " + std::to_string(i));
    ASSERT_LT(std::filesystem::file_size(path), kMax);
  }
  // Windows moves no file that another program has open: it is emptied in its place, and the one before stays.
  EXPECT_TRUE(test::kWindows || std::filesystem::file_size(old) < kMax + 100);
  const std::string kept = (test::kWindows ? "" : test::readFile(old)) + test::readFile(path);
  EXPECT_THAT(kept, MatchesPattern("[^]*entry 99\n[0-9:]{8} other 99\n"));
}

TEST(LogStore, GoesOnWithoutItsFile) {
  const TempFolder folder;
  test::writeFile(folder / "file", "");
  LogStore log(10);
  EXPECT_FALSE(log.openFile(folder / "file/log"));
  EXPECT_FALSE(log.openFile(folder.path()));
  log.error("kept");
  EXPECT_EQ(log.entriesAfter(0).back().text, "kept");
  if (!test::kWindows) {
    ASSERT_TRUE(log.openFile("/dev/full"));
  }
  log.error("kept too");
  EXPECT_EQ(log.lastSequence(), 2u);
}

TEST(LogTail, HoldsTheLastLinesOfAllItsStores) {
  LogTail tail;
  LogStore first(100);
  LogStore second(100);
  first.info("before");
  first.mirrorTo(tail);
  second.mirrorTo(tail);
  for (int i = 0; i < 59; ++i) first.info(std::to_string(i));
  ASSERT_EQ(tail.count(), 60u);
  EXPECT_THAT(std::string(tail.line(0)), MatchesPattern("[0-9:]{8} before\n"));
  second.error(std::string(2000, 'x') + "é");
  ASSERT_EQ(tail.count(), 61u);
  EXPECT_THAT(std::string(tail.line(1)), MatchesPattern("[0-9:]{8} 0\n"));
  EXPECT_EQ(tail.line(60).size(), LogTail::kLongestLine);
  EXPECT_TRUE(tail.line(60).ends_with("x\n"));
  std::string accents;
  for (int i = 0; i < 600; ++i) accents += "é";
  tail.add(accents);
  EXPECT_EQ(tail.line(61).size(), LogTail::kLongestLine - 1);  // no half character
}

TEST(LogStore, TakesEntriesFromManyThreads) {
  LogStore log(100000);
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&log] {
      for (int i = 0; i < 1000; ++i) {
        log.info("entry");
        if (i % 100 == 0) (void)log.entriesAfter(log.lastSequence() / 2);
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  const std::vector<LogEntry> all = log.entriesAfter(0);
  ASSERT_EQ(all.size(), 4000u);
  for (size_t i = 0; i < all.size(); ++i) ASSERT_EQ(all[i].sequence, i + 1);
  for (size_t i = 1; i < all.size(); ++i) ASSERT_LE(all[i - 1].seconds, all[i].seconds);
}

}  // namespace
}  // namespace quor
