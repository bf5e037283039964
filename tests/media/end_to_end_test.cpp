// From media to cameras with the real COLMAP: the solved cameras must be the ones that took the pictures.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sched.h>

#include "base/process/tool_finder.h"
#include "ingest/sphere/sphere_views.h"
#include "pipeline/media.h"
#include "pipeline/pipeline.h"
#include "project/camera_report.h"
#include "sample_capture/options.h"
#include "support/fake_trainer.h"
#include "support/gpu_fixture.h"
#include "support/scripts.h"
#include "support/solved_cameras.h"

namespace quor {
namespace {

// The installed COLMAP on one processor: which of its threads gets which pair decides over the random samples of its
// verification, and with them over the last digits of every camera.
std::optional<ToolLocation> steadyColmap(const std::filesystem::path& folder) {
  const std::optional<ToolLocation> colmap = findColmap("");
  if (!colmap) return {};
  cpu_set_t allowed;
  sched_getaffinity(0, sizeof allowed, &allowed);
  int processor = 0;
  while (processor + 1 < CPU_SETSIZE && !CPU_ISSET(processor, &allowed)) ++processor;
  return ToolLocation{test::writeScript(folder / "colmap", "exec taskset -c " + std::to_string(processor) + " '" +
                                                               toUtf8(colmap->executable) + "' \"$@\"\n"),
                      "settings"};
}

class EndToEndTest : public gs::GpuTest {
 protected:
  // `turn`: degrees of the orbit that are covered.
  void film(sample::Kind kind, int size, int count, double turn = 360,
            sample::SceneKind scene = sample::SceneKind::Room) {
    sample::Options options;
    options.kind = kind;
    options.scene = scene;
    options.out = capture_;
    options.orbit.count = count;
    options.orbit.size = sample::pictureSize(kind, size);
    options.orbit.turn = turn;
    options.binaryModel = true;
    sample::writeCapture(options);
    inputs_ = {{toUtf8(capture_ / sample::mediaOf(kind)),
                kind == sample::Kind::Photos ? InputKind::Images : InputKind::Video}};
    detectVideoKinds(inputs_);
  }
  void solve(const std::function<void(Project&)>& change = {}) {
    project_ = Project::create(inputs_, folder_.path());
    if (change) change(project_);
    pipeline_.open(project_);
    const auto run = pipeline_.start(Stage::Frames, Stage::Sparse);
    const RunResult result = run->waitFor(std::chrono::minutes(10)).value_or(RunResult{Outcome::Failed, "no end", {}});
    if (!result.success()) {
      for (const LogEntry& entry : log_.entriesAfter(0)) std::fprintf(stderr, "%s\n", entry.text.c_str());
    }
    ASSERT_EQ(result.text, "Done");
    project_ = Project::load(project_.root);
    report_ = CameraReport::load(project_).value();
    solved_ = gs::colmap::loadModel(project_.solvedFolder() / "sparse", true);
  }
  // The poses of photographs, which are imported in the order of their names.
  std::vector<test::TruePose> truePhotos() const {
    const gs::colmap::Model truth = gs::colmap::loadModel(capture_ / "sparse/0", false);
    std::vector<test::TruePose> poses;
    for (size_t i = 0; i < truth.images.size(); ++i) {
      sample::Pose pose = test::poseOf(truth.images[i].qvec, {});
      pose.translation = truth.images[i].tvec;
      poses.push_back({sample::frameName(i), pose});
    }
    return poses;
  }
  void expectTrueCameras(const std::vector<test::TruePose>& truth, size_t images) {
    const test::CameraErrors errors = test::compareWithTruth(solved_, truth);
    std::printf("%zu of %zu images, rotation %.3f degrees, position %.2f %% of the radius\n", errors.compared, images,
                errors.rotation, errors.position * 100);
    EXPECT_GE(errors.compared, images * 9 / 10);
    EXPECT_LT(errors.rotation, 0.5);
    EXPECT_LT(errors.position, 0.01);
    EXPECT_NE(report_.trust, CameraTrust::Folded) << cameraReportText(report_);
    EXPECT_THAT(report_.jumps, testing::IsEmpty()) << cameraReportText(report_);
  }

  test::TempFolder folder_;
  const std::filesystem::path capture_ = folder_ / "-a 'capture' écrit 写";
  std::vector<InputSource> inputs_;
  Project project_;
  LogStore log_{5000};
  test::FakeTrainer trainer_;
  Pipeline pipeline_{trainer_, log_, Tools{steadyColmap(folder_.path()), findFfmpeg("")}, &context};
  gs::colmap::Model solved_;
  CameraReport report_;
};

TEST_F(EndToEndTest, Photos) {
  film(sample::Kind::Photos, 320, 24);
  solve();
  expectTrueCameras(truePhotos(), 24);
  EXPECT_EQ(report_.attempts.size(), 1u) << cameraReportText(report_);
}

TEST_F(EndToEndTest, AnObjectThatLooksTheSameFromBothSides) {
  film(sample::Kind::Photos, 320, 36, 360, sample::SceneKind::Symmetric);
  solve();
  expectTrueCameras(truePhotos(), 36);
  EXPECT_GT(report_.attempts.size(), 1u) << "solved right at once, so that nothing was proven";
  EXPECT_GT(report_.attempts.front().foldScore, 0);
}

TEST_F(EndToEndTest, Video) {
  film(sample::Kind::Video, 320, 30, 180);
  ASSERT_EQ(inputs_[0].kind, InputKind::Video);
  solve([](Project& project) {
    project.ingest.targetFrameCount = 30;
    project.sparse.gpuMatching = false;  // the other captures' features are matched here
  });
  std::vector<test::TruePose> poses;
  test::appendSampled(poses, test::readTrueVideo(capture_ / "cameras.csv"), 0, 10, "");
  expectTrueCameras(poses, 30);
}

TEST_F(EndToEndTest, Video360) {
  film(sample::Kind::Video360, 768, 8, 120);
  ASSERT_EQ(inputs_[0].kind, InputKind::Video360);
  solve([](Project& project) {
    project.ingest.targetFrameCount = 48;
    project.ingest.viewResolution = 256;
  });
  const test::TrueVideo video = test::readTrueVideo(capture_ / "cameras.csv");
  std::vector<test::TruePose> poses;
  for (const SphereView& view : sphereViews(project_.ingest)) {
    test::appendSampled(poses, video, 0, 10, "_" + view.name, test::viewTurn(view.yaw, view.pitch));
  }
  expectTrueCameras(poses, 48);
  ASSERT_TRUE(project_.knownIntrinsics);
}

TEST_F(EndToEndTest, DualFisheye) {
  film(sample::Kind::DualFisheye, 320, 12, 120);
  ASSERT_EQ(inputs_[0].kind, InputKind::DualFisheye);
  solve([](Project& project) { project.ingest.targetFrameCount = 12; });
  const test::TrueVideo video = test::readTrueVideo(capture_ / "cameras.csv");
  std::vector<test::TruePose> poses;
  for (const size_t lens : {size_t{0}, size_t{1}}) {
    test::appendSampled(poses, video, lens, 10, "_lens" + std::to_string(lens + 1));
  }
  expectTrueCameras(poses, 24);
}

}  // namespace
}  // namespace quor
