// Training from end to end through the program, on whatever device there is.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "support/child_program.h"
#include "support/small_capture.h"

namespace quor::test {
namespace {

using ::testing::HasSubstr;

class TrainTest : public ::testing::Test {
 protected:
  TrainTest() { writeSmallCapture(folder_ / "set"); }

  std::filesystem::path output() const { return folder_ / "set_ombrelux/output"; }

  TempFolder folder_;
  const std::string set_ = toUtf8(folder_ / "set");
  const std::string project_ = toUtf8(folder_ / "set_ombrelux");
};

TEST_F(TrainTest, EndsWithAResultOnStandardOutput) {
  const Ended json = runCli({"import", set_, "--iterations", "60", "--splat", "--json"});
  ASSERT_EQ(json.exitCode, 0) << json.err;
  const nlohmann::json document = nlohmann::json::parse(json.out);  // throws when there is anything beside it
  EXPECT_EQ(document["project"], project_);
  EXPECT_EQ(document["iterations"], 60);
  EXPECT_GT(document["splats"], 0);
  EXPECT_GT(document["seconds"], 0);
  EXPECT_GT(document["psnr"], 5);
  EXPECT_GT(document["ssim"], 0);
  for (const char* file : {"ply", "splat", "checkpoint"}) {
    EXPECT_GT(std::filesystem::file_size(fromUtf8(document[file].get<std::string>())), 0u) << file;
  }
  EXPECT_THAT(json.err, HasSubstr("Project: " + project_ + "\n"));
  EXPECT_THAT(json.err, HasSubstr("  train: step "));
  EXPECT_THAT(json.err, HasSubstr("Train Gaussians: 60 iterations\n"));

  const Ended path = runCli({"train", project_, "--resume", "--iterations", "80", "--no-eval", "--quiet"});
  EXPECT_EQ(path.exitCode, 0);
  EXPECT_EQ(path.out, toUtf8(output() / "scene.ply") + "\n");
  EXPECT_EQ(path.err, "");

  const Ended refused = runCli({"train", project_, "--json", "--quiet"});
  EXPECT_EQ(refused.exitCode, 1);
  EXPECT_EQ(refused.out, "");
  EXPECT_EQ(refused.err,
            "error: The checkpoint is already at step 80. Set more iterations than that to continue training it.\n");
}

TEST_F(TrainTest, AnInterruptStopsAndASecondCancels) {
  for (const int signal : {SIGINT, SIGHUP}) {
    ChildProgram stopped(OMBRELUX_CLI, {"import", set_, "--iterations", "1000000", "--json"});
    ASSERT_TRUE(stopped.waitForError("  train: step "));
    stopped.signal(signal);
    const Ended stop = stopped.wait();
    EXPECT_EQ(stop.exitCode, 0) << stop.err;
    const nlohmann::json document = nlohmann::json::parse(stop.out);
    EXPECT_GT(document["iterations"], 0);
    EXPECT_LT(document["iterations"], 1000000);
    EXPECT_TRUE(document.contains("ply") && document.contains("checkpoint"));
  }

  std::filesystem::remove(output() / "scene.ply");
  ChildProgram cancelled(OMBRELUX_CLI, {"train", project_});
  ASSERT_TRUE(cancelled.waitForError("  train: step "));
  cancelled.signal(SIGSTOP);  // so that it meets both together, however busy the machine is
  cancelled.signal(SIGINT);
  cancelled.signal(SIGTERM);
  cancelled.signal(SIGCONT);
  const Ended cancel = cancelled.wait();
  EXPECT_EQ(cancel.exitCode, 130) << cancel.err;
  EXPECT_EQ(cancel.out, "");
  EXPECT_THAT(cancel.err, HasSubstr("error: Cancelled\n"));
  EXPECT_FALSE(std::filesystem::exists(output() / "scene.ply"));
}

TEST_F(TrainTest, ASecondProgramStaysOutAndBothLeaveALog) {
  const std::string home = toUtf8(folder_ / "home");
  const std::vector<std::string> environment = {"XDG_DATA_HOME=" + home};
  ChildProgram first(OMBRELUX_CLI, {"import", set_, "--iterations", "1000000", "--quiet"}, environment);
  const auto log = folder_ / "home/Ombrelux/logs/Ombrelux.log";
  ASSERT_TRUE(waitUntil([&] {
    return !first.running() || (std::filesystem::exists(log) && readFile(log).find("1000000 it") != std::string::npos);
  }));
  ASSERT_TRUE(first.running());
  const std::string before = readFile(folder_ / "set_ombrelux/project.json");
  const Ended second = runCli({"train", project_, "--iterations", "5", "--quiet"}, environment);
  EXPECT_EQ(second.exitCode, 1);
  EXPECT_EQ(second.err,
            "error: Another Ombrelux is working on " + project_ + ". Wait until it has finished, or end it there.\n");
  EXPECT_EQ(readFile(folder_ / "set_ombrelux/project.json"), before);
  first.signal(SIGKILL);
  first.wait();
  EXPECT_EQ(runCli({"train", project_, "--iterations", "5", "--quiet"}, environment).exitCode, 0);
  EXPECT_THAT(readFile(log), ::testing::MatchesRegex("[0-9:]+ Ombrelux [0-9.]+ starting\n(.|\n)*Train Gaussians: 5 "
                                                     "iterations\n(.|\n)*"));
}

// Bytes of a file, in the shell's blocks of 512, beyond which writing fails as it does on a full disk.
TEST_F(TrainTest, AFullDiskCostsNoEarlierFile) {
  const auto trainWithin = [&](const char* blocks) {
    const std::string script = std::string("ulimit -f ") + blocks + R"(; exec "$0" "$@")";
    return ChildProgram("/bin/sh", {"-c", script, OMBRELUX_CLI, "train", project_, "--quiet"}).wait();
  };
  ASSERT_EQ(runCli({"import", set_, "--iterations", "5"}).exitCode, 0);
  const std::string scene = readFile(output() / "scene.ply");
  const std::string checkpoint = readFile(output() / "checkpoint.quor");

  const Ended noScene = trainWithin("20");
  EXPECT_EQ(noScene.exitCode, 1);
  EXPECT_EQ(noScene.out, "");
  EXPECT_THAT(noScene.err,
              ::testing::EndsWith("error: Writing " + toUtf8(output() / "scene.ply") + " failed (disk full?)\n"));
  EXPECT_EQ(readFile(output() / "scene.ply"), scene);

  const Ended noCheckpoint = trainWithin("200");
  EXPECT_EQ(noCheckpoint.exitCode, 0);
  EXPECT_EQ(noCheckpoint.out, toUtf8(output() / "scene.ply") + "\n");
  EXPECT_THAT(noCheckpoint.err, HasSubstr("warning: Could not write the checkpoint: "));
  EXPECT_EQ(readFile(output() / "checkpoint.quor"), checkpoint);
  for (const auto& entry : std::filesystem::directory_iterator(output())) {
    EXPECT_NE(entry.path().extension(), ".partial");
  }
}

}  // namespace
}  // namespace quor::test
