// A run that is interrupted or killed at any moment leaves nothing behind that harms, and can be taken up.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <fstream>
#include <random>

#include "colmap/model.h"
#include "project/project.h"
#include "sample_capture/capture.h"
#include "support/child_program.h"
#include "support/wait_until.h"

namespace quor::test {
namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

class CancelTest : public ::testing::Test {
 protected:
  CancelTest() {
    const sample::Scene scene(3);
    sample::Orbit orbit;
    orbit.count = 24;
    orbit.size = {240, 160};
    const std::vector<sample::PinholeView> views = sample::orbitViews(orbit);
    fs::create_directories(media_);
    for (size_t i = 0; i < 8; ++i) {  // a third of the orbit, seen densely
      writeJpeg(media_ / sample::photoName(i), renderView(scene, views[i]), 92);
    }
  }

  std::vector<std::string> command() const {
    return {"run", toUtf8(media_), "--iterations", "400", "--resolution", "120", "--no-eval", "--quiet"};
  }

  // Command lines of processes, other than this one, that speak of this test's folder.
  std::vector<std::string> processes() const {
    std::vector<std::string> found;
    for (const auto& entry : fs::directory_iterator("/proc")) {
      std::ifstream file(entry.path() / "cmdline", std::ios::binary);
      std::string line((std::istreambuf_iterator<char>(file)), {});
      std::ranges::replace(line, '\0', ' ');
      if (line.find(toUtf8(media_)) != std::string::npos) found.push_back(line);
    }
    return found;
  }
  bool allGone() const {
    return waitUntil([this] { return processes().empty(); });
  }

  std::vector<std::string> halfWritten() const {
    std::vector<std::string> found;
    if (!fs::exists(project_)) return found;
    for (const auto& entry : fs::recursive_directory_iterator(project_)) {
      const std::string extension = toUtf8(entry.path().extension());
      if (extension == ".partial" || extension == ".tmp") found.push_back(toUtf8(entry.path()));
    }
    return found;
  }

  // What is there under its final name is whole.
  void expectSound() const {
    if (fs::exists(project_ / "project.json")) {
      EXPECT_NO_THROW(Project::load(project_));
    }
    const fs::path solved = project_ / "colmap/undistorted";
    if (fs::exists(solved)) {
      EXPECT_FALSE(gs::colmap::loadModel(solved / "sparse", true).images.empty());
    }
    if (fs::exists(project_ / "frames")) {
      const auto frames = std::distance(fs::directory_iterator(project_ / "frames"), {});
      EXPECT_TRUE(frames == 0 || frames == 8) << frames;
    }
  }

  TempFolder folder_;
  const fs::path media_ = folder_ / "Ünter wegs 'x' 写真";
  const fs::path project_ = folder_ / "Ünter wegs 'x' 写真_ombrelux";
};

// The moments need not be met exactly: whatever the run is at then must hold.
TEST_F(CancelTest, AtAnyMomentNothingStaysBehindAndTheProjectCanBeFinished) {
  const auto begin = Clock::now();
  const Ended whole = ChildProgram(OMBRELUX_CLI, command()).wait();
  ASSERT_EQ(whole.exitCode, 0) << whole.err;
  const double seconds = std::chrono::duration<double>(Clock::now() - begin).count();

  constexpr int kMoments = 18;
  std::mt19937 random(7);
  for (int i = 0; i < kMoments; ++i) {
    // Evenly over the run, so that every stage gets its share.
    const double share = (i + std::uniform_real_distribution<>(0, 1)(random)) / kMoments;
    const bool killed = i % 3 == 2;
    SCOPED_TRACE("cancel " + std::to_string(i) + " at " + std::to_string(share * seconds) + " s of " +
                 std::to_string(seconds) + (killed ? ", killed" : ""));
    fs::remove_all(project_);
    ChildProgram run(OMBRELUX_CLI, command());
    std::this_thread::sleep_for(std::chrono::duration<double>(share * seconds));
    run.signal(killed ? SIGKILL : SIGINT);
    const Ended ended = run.wait();
    if (!killed) {
      EXPECT_THAT(ended.exitCode, ::testing::AnyOf(130, 0));  // training that is interrupted still ends in a scene
      EXPECT_THAT(halfWritten(), ::testing::IsEmpty());
    }
    EXPECT_TRUE(allGone()) << ::testing::PrintToString(processes());
    expectSound();

    if (i % 6 == 2 && fs::exists(project_ / "project.json")) {  // killed in every stage: taken up where it was
      const bool frames = fs::exists(project_ / "frames/f00001.jpg");
      const bool solved = fs::exists(project_ / "colmap/undistorted");
      std::vector<std::string> again = {"train", toUtf8(project_), "--iterations", "5", "--quiet"};
      if (!solved) again.insert(again.end(), {"--from", frames ? "sparse" : "frames"});
      const Ended finished = ChildProgram(OMBRELUX_CLI, again).wait();
      EXPECT_EQ(finished.exitCode, 0) << finished.err;
      EXPECT_THAT(halfWritten(), ::testing::IsEmpty());
    }
  }
}

}  // namespace
}  // namespace quor::test
