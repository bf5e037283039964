// The program as a person meets it: it opens with a scene, shows it, lets it be turned, and closes.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <functional>
#include <utility>

#include "gs/files/ply.h"
#include "support/scripts.h"
#include "support/wait_until.h"
#include "virtual_screen.h"

namespace quor::test {
namespace {

// The interface is grey, the scene is not.
size_t colourful(const Image& screen) {
  size_t count = 0;
  for (size_t i = 0; i < screen.rgb.size(); i += 3) {
    const auto [low, high] = std::minmax({screen.rgb[i], screen.rgb[i + 1], screen.rgb[i + 2]});
    count += high - low > 80;
  }
  return count;
}

size_t changed(const Image& a, const Image& b) {
  size_t count = 0;
  for (size_t i = 0; i < a.rgb.size(); ++i) count += std::abs(a.rgb[i] - b.rgb[i]) > 8;
  return count;
}

// Balls of every colour in a ball.
gs::GaussianSet scene() {
  gs::GaussianSet set;
  set.resize(400);
  set.shDegree = 0;
  for (size_t i = 0; i < set.count; ++i) {
    const double height = 2 * (static_cast<double>(i) + 0.5) / 400 - 1, around = 2.4 * static_cast<double>(i);
    const double ring = std::sqrt(1 - height * height);
    const double at[] = {ring * std::cos(around), height, ring * std::sin(around)};
    for (size_t a = 0; a < 3; ++a) {
      set.positions[3 * i + a] = static_cast<float>(at[a]);
      set.scales[3 * i + a] = -2.5f;
      set.shDc[3 * i + a] = static_cast<float>(1.7 * at[a]);
    }
    set.rotations[4 * i] = 1;
    set.opacities[i] = 4;
  }
  return set;
}

class WindowTest : public testing::Test {
 protected:
  // False when it ends, or never comes to it.
  static bool waitFor(const ChildProgram& program, const std::function<bool()>& condition) {
    bool met = false;
    return waitUntil([&] { return (met = condition()) || !program.running(); }) && met;
  }
  static bool ends(const ChildProgram& program) {
    return waitUntil([&] { return !program.running(); });
  }
  std::string log() const {
    const std::filesystem::path file = folder_ / "home/Ombrelux/logs/Ombrelux.log";
    return std::filesystem::exists(file) ? readFile(file) : "";
  }
  std::vector<std::string> environment() const {
    return {screen_.environment(), "XDG_DATA_HOME=" + (folder_ / "home").string(), "QUOR_VALIDATION=1",
            "QUOR_VALIDATION_LOG=" + (folder_ / "validation.log").string()};
  }

  TempFolder folder_;
  VirtualScreen screen_{1000, 700};
};

TEST_F(WindowTest, ShowsASceneLetsItBeTurnedAndCloses) {
  const std::filesystem::path file = folder_ / "sphère 写.ply";
  gs::writePly(file, scene(), "");
  ChildProgram program(OMBRELUX_DESKTOP, {toUtf8(file)}, environment());
  ASSERT_TRUE(waitFor(program, [&] { return log().find("Loaded 400 splats from ") != std::string::npos; })) << log();
  ASSERT_TRUE(waitFor(program, [&] { return colourful(screen_.picture()) > 20000; }));
  Image before = screen_.picture();
  ASSERT_TRUE(waitFor(program, [&] {  // until it is all drawn
    Image now = screen_.picture();
    std::swap(before, now);
    return changed(before, now) == 0;
  }));
  // As slowly as a hand: a frame sees where the pointer is, not where it was.
  screen_.act(
      "mousemove 650 250 sleep 0.3 mousedown 1 sleep 0.3 mousemove 690 250 sleep 0.3 mousemove 770 280 sleep 0.3 "
      "mouseup 1");
  EXPECT_TRUE(waitFor(program, [&] { return changed(before, screen_.picture()) > 10000; }));
  if (const char* keep = std::getenv("OMBRELUX_KEEP_SCREENSHOTS")) writePng(fromUtf8(keep), screen_.picture());
  screen_.act("key ctrl+q");
  ASSERT_TRUE(ends(program));
  const Ended ended = program.wait();
  EXPECT_EQ(ended.exitCode, 0) << ended.err;
  EXPECT_EQ(ended.err, "");
  EXPECT_FALSE(std::filesystem::exists(folder_ / "validation.log")) << readFile(folder_ / "validation.log");
  EXPECT_NE(log().find("Ombrelux 1.1.3 starting\n"), std::string::npos);
}

TEST_F(WindowTest, AStartThatFailsIsSaidInAMessageBox) {
  const std::filesystem::path said = folder_ / "said";
  writeScript(folder_ / "bin/zenity", "printf '%s\\n' \"$@\" > '" + said.string() + "'\n");
  std::vector<std::string> noDriver = environment();
  noDriver.push_back("PATH=" + (folder_ / "bin").string());
  for (const char* variable : {"VK_DRIVER_FILES", "VK_ICD_FILENAMES"}) {
    noDriver.push_back(std::string(variable) + "=/nowhere/driver.json");
  }
  ChildProgram program(OMBRELUX_DESKTOP, {}, noDriver);
  ASSERT_TRUE(ends(program));
  const Ended ended = program.wait();
  EXPECT_EQ(ended.exitCode, 1);
  ASSERT_TRUE(std::filesystem::exists(said)) << ended.err;
  const size_t at = ended.err.find("error: ");
  ASSERT_NE(at, std::string::npos) << ended.err;
  const std::string sentence = ended.err.substr(at + 7, ended.err.find('\n', at) - at - 7);
  EXPECT_NE(readFile(said).find("--text=" + sentence), std::string::npos) << readFile(said);
  EXPECT_NE(log().find("error: " + sentence), std::string::npos) << log();
}

}  // namespace
}  // namespace quor::test
