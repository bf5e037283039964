// A queue of captures through the program: its lines, its exit codes, and what is left when it is killed.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "support/child_program.h"
#include "support/small_capture.h"

namespace quor::test {
namespace {

using nlohmann::json;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::StartsWith;

class BatchTest : public ::testing::Test {
 protected:
  // An item that wraps a dataset, its path relative to the batch file.
  static json item(const std::string& dataset, int iterations) {
    return {{"colmapImport", dataset}, {"training", {{"iterations", iterations}, {"numDownscales", 0}}}};
  }
  json saved() const { return json::parse(readFile(file_)); }
  void save(const json& items) { writeFile(file_, json{{"destination", "built"}, {"items", items}}.dump()); }
  std::string scene(const std::string& project) const {
    return toUtf8(folder_ / ("built/" + project)) + "/output/scene.ply";
  }

  TempFolder folder_;
  const std::filesystem::path file_ = folder_ / "batch.json";
  const std::string path_ = toUtf8(folder_.path());
};

TEST_F(BatchTest, IsKilledInTheMiddleAndCompletedByASecondCall) {
  writeSmallCapture(folder_ / "a/garden");
  std::filesystem::create_directories(folder_ / "b");
  std::filesystem::copy(folder_ / "a/garden", folder_ / "b/garden", std::filesystem::copy_options::recursive);
  json before = item("elsewhere/shed", 5);
  before["state"] = "finished";
  before["note"] = "77 splats";
  save({item("a/garden", 40), item("nowhere", 5), before, item("b/garden", 1000000)});

  ChildProgram killed(OMBRELUX_CLI, {"batch", path_});
  ASSERT_TRUE(killed.waitForError("running: garden\nProject: " + toUtf8(folder_ / "built/garden_ombrelux_2")));
  ASSERT_TRUE(killed.waitForError("  train: step "));
  killed.signal(SIGKILL);
  const Ended first = killed.wait();
  EXPECT_THAT(first.err, StartsWith("Batch: 4 projects, writing to " + path_ + "/built\n"));
  EXPECT_THAT(first.err, HasSubstr("\nfailed: nowhere — No COLMAP model in " + path_ + "/nowhere."));
  EXPECT_THAT(first.err, HasSubstr("\nskipped: shed\n"));
  EXPECT_EQ(first.out, scene("garden_ombrelux") + "\n");
  json items = saved()["items"];
  EXPECT_EQ(std::tuple(items[0]["state"], items[1]["state"], items[2]["note"], items[3]["state"]),
            std::tuple("finished", "failed", "77 splats", "waiting"));

  items[3]["training"]["iterations"] = 30;
  save(items);
  const Ended second = runCli({"batch", toUtf8(file_)});
  EXPECT_EQ(second.exitCode, 1);
  EXPECT_EQ(second.out, scene("garden_ombrelux_2") + "\n");
  EXPECT_THAT(second.err, HasSubstr("\nskipped: garden\n"));
  EXPECT_THAT(second.err, ::testing::ContainsRegex("\nfinished: garden — [0-9]+ splats - PSNR [0-9.]+ dB\n"));
  EXPECT_THAT(second.err, EndsWith("\n3 of 4 projects finished, 1 failed\n"));

  items = saved()["items"];
  items.erase(1);
  save(items);
  const Ended third = runCli({"batch", path_, "--json", "--quiet"});
  EXPECT_EQ(third.exitCode, 0);
  EXPECT_EQ(third.err, "");
  const json document = json::parse(third.out);
  EXPECT_EQ(std::tuple(document["projects"], document["finished"], document["failed"]), std::tuple(3, 3, 0));
  EXPECT_EQ(document["items"][2]["state"], "skipped");
  EXPECT_EQ(document["items"][2]["ply"], scene("garden_ombrelux_2"));
}

TEST_F(BatchTest, AnInterruptStopsTheQueue) {
  writeSmallCapture(folder_ / "set");
  save({item("set", 1000000), item("set", 5)});
  ChildProgram stopped(OMBRELUX_CLI, {"batch", path_});
  ASSERT_TRUE(stopped.waitForError("  train: step "));
  stopped.signal(SIGINT);
  const Ended stop = stopped.wait();
  EXPECT_EQ(stop.exitCode, 130);
  EXPECT_EQ(stop.out, "");
  EXPECT_THAT(stop.err, HasSubstr("\nwaiting: set — Stopped at step "));
  EXPECT_THAT(stop.err, EndsWith("\nerror: Cancelled. The same command goes on where it stopped.\n"));

  const json items = saved()["items"];
  EXPECT_EQ(items[0]["state"], "waiting");
  EXPECT_EQ(items[1]["projectRoot"], "");
}

TEST_F(BatchTest, WhatCannotBeWorkedThroughIsRefused) {
  writeFile(file_, R"({"items": [)");
  const Ended damaged = runCli({"batch", path_});
  EXPECT_EQ(damaged.exitCode, 1);
  EXPECT_THAT(damaged.err, ::testing::MatchesRegex("error: [^\n]*batch.json is damaged: [^\n]*\n"));
  const Ended usage = runCli({"batch", path_, "--iterations", "5"});
  EXPECT_EQ(usage.exitCode, 2);
  EXPECT_THAT(
      usage.err,
      StartsWith("error: --iterations is an option of run, train and import, not of batch: it takes every item's"));

  save({item("x", 1), item("y", 1)});
  const Ended failed = runCli({"batch", path_, "--quiet"});
  EXPECT_EQ(failed.exitCode, 1);
  EXPECT_EQ(failed.out, "");
  EXPECT_THAT(failed.err, ::testing::MatchesRegex("failed: x — [^\n]*\nfailed: y — [^\n]*\n"));
}

}  // namespace
}  // namespace quor::test
