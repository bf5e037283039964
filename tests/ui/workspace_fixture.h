// A workspace with a trainer and a COLMAP that only pretend, and the files that it opens.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "gs/files/ply.h"
#include "sfm/fake_colmap.h"
#include "support/bare_dataset.h"
#include "support/fake_trainer.h"
#include "support/small_checkpoint.h"
#include "support/temp_folder.h"
#include "ui/models/project/workspace.h"
#include "ui/pump.h"

namespace quor::test {

namespace fs = std::filesystem;
using ui::NewMedia;
using ui::Notice;
using ui::StageRow;
using ui::Workspace;

inline gs::GaussianSet oneSplat() {
  gs::GaussianSet set;
  set.resize(1);
  set.rotations[0] = 1;
  return set;
}

class WorkspaceTest : public ::testing::Test {
 protected:
  WorkspaceTest() {
    preferences_.colmapPath = toUtf8(colmap_.executable());
    colmap_.mapsTo("0", {"f00001.jpg", "f00002.jpg", "f00003.jpg"});
    make();
  }

  void make() {
    workspace_ = std::make_unique<Workspace>(
        Workspace::Parts{log_,
                         trainer_,
                         preferences_,
                         [this] {
                           return std::make_unique<Pipeline>(trainer_, log_, Tools{find(preferences_.colmapPath), {}});
                         },
                         [this] { return occupied_; },
                         {},
                         [](const fs::path&) { return true; },
                         find});
  }

  // Not one that happens to be installed.
  static std::optional<ToolLocation> find(const std::string& configured) {
    if (configured.empty()) return std::nullopt;
    return findColmap(configured);
  }
  template <class Condition>
  void until(Condition condition) {
    ASSERT_TRUE(pump(*workspace_, condition));
  }
  void open(const std::vector<fs::path>& paths) {
    workspace_->open(paths);
    until([&] { return !workspace_->loading(); });
  }
  void finishRun() {
    until([&] { return !workspace_->busy() && !workspace_->loading(); });
  }
  fs::path photos(const std::string& name, int count, int width = 40) {
    fs::create_directories(folder_ / name);
    for (int i = 0; i < count; ++i) {
      Image image{width, 30, std::vector<uint8_t>(static_cast<size_t>(width * 90), 90)};
      writePng(folder_ / name / ("p" + std::to_string(i) + ".png"), image);
    }
    return folder_ / name;
  }
  fs::path dataset(const std::string& name) {
    const fs::path path = folder_ / name;
    writeBareDataset(path);
    return path;
  }
  // A project with two solved cameras, opened.
  Project solvedProject() {
    Project project = Project::fromDataset(dataset("set"), {});
    project.training.iterations = 500;
    project.training.technique = gs::Technique::Vanilla;
    project.save();
    return project;
  }
  // The one notice there is, which is taken away.
  Notice notice() {
    EXPECT_EQ(workspace_->notices().size(), 1u);
    Notice notice = workspace_->notices().empty() ? Notice() : workspace_->notices().front();
    workspace_->notices().clear();
    return notice;
  }
  const StageRow row(Stage stage) { return workspace_->run().stages()[static_cast<size_t>(stage)]; }

  TempFolder folder_;
  FakeColmap colmap_{folder_ / "tools"};
  Preferences preferences_;
  LogStore log_{1000};
  FakeTrainer trainer_;
  bool occupied_ = false;
  std::unique_ptr<Workspace> workspace_;
};

}  // namespace quor::test
