// A project with frames and a fake COLMAP, and what a solve of it says.
#pragma once

#include <gmock/gmock.h>

#include <atomic>

#include "fake_colmap.h"
#include "sfm/colmap_runner.h"

namespace quor::test {

class SolveTest : public ::testing::Test {
 protected:
  SolveTest() {
    project.root = folder / "project";
    project.sparse.matcher = Matcher::Exhaustive;
  }

  void addFrame(const std::string& name, int width = 8, int height = 6) {
    Image image{width, height, std::vector<uint8_t>(static_cast<size_t>(width * height * 3), 90)};
    const std::filesystem::path path = project.framesFolder() / fromUtf8(name);
    std::filesystem::create_directories(path.parent_path());
    writeJpeg(path, image, 90);
    frames.push_back(name);
  }
  void addFrames() {
    for (const char* name : {"a.jpg", "b.jpg", "c.jpg", "d.jpg"}) addFrame(name);
  }

  ColmapRunner::Result solve(const FakeColmap& colmap) {
    return ColmapRunner(colmap.location(), log, [this] { return cancelled.load(); })
        .run(project, [this](const std::string& message, float fraction, int) {
          if (messages.empty() || messages.back() != message) messages.push_back(message);
          EXPECT_GE(fraction, reached) << message;
          reached = fraction;
        });
  }

  std::string logText() const {
    std::string text;
    for (const LogEntry& entry : log.entriesAfter(0)) text += levelPrefix(entry.level) + entry.text + "\n";
    return text;
  }
  bool hasDataset() const { return std::filesystem::exists(project.solvedFolder()); }

  TempFolder folder;
  Project project;
  LogStore log{1000};
  std::vector<std::string> frames;
  std::vector<std::string> messages;
  float reached = 0;
  std::atomic<bool> cancelled = false;
};

}  // namespace quor::test
