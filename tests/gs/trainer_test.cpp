// Whole training runs on a small made-up room, judged on views that were not trained on.
#include "gs/trainer.h"

#include <gtest/gtest.h>

#include <cmath>

#include "gs/engine.h"
#include "gs/ply.h"
#include "gs/schedule.h"
#include "sample_capture/capture.h"
#include "sample_capture/scene.h"
#include "support/gpu_fixture.h"
#include "support/temp_folder.h"

namespace quor::gs {
namespace {

constexpr int kViews = 20, kWidth = 96, kHeight = 64;

// Rendered once for all tests of the program.
const Dataset& room() {
  static const Dataset dataset = [] {
    const sample::Scene scene(1);
    const auto poses = sample::orbitViews({kViews, {kWidth, kHeight}, 1});
    Dataset d;
    std::vector<Camera> cameras;
    for (size_t i = 0; i < poses.size(); ++i) {
      View view;
      view.name = sample::photoName(i);
      view.camera = {poses[i].width, poses[i].height, poses[i].fx,       poses[i].fy,
                     poses[i].cx,    poses[i].cy,     poses[i].rotation, poses[i].translation};
      view.image = sample::renderView(scene, poses[i]);
      cameras.push_back(view.camera);
      (i % 5 == 2 ? d.heldOut : d.training).push_back(std::move(view));
    }
    d.points = sample::trueModel(scene, poses, 1500, 1).model.points;
    d.geometry = sceneGeometry(cameras);
    return d;
  }();
  return dataset;
}

TrainJob quickJob(Technique technique, int iterations) {
  TrainJob job;
  job.technique = technique;
  job.iterations = iterations;
  job.downscaleLevels = 1;
  job.shDegreeInterval = 100;
  job.densifyFrom = 100;
  job.densifyGradient = 0.0004f;
  job.mcmcTarget = 2500;
  return resolved(job);
}

class TrainerTest : public GpuTest {
 protected:
  EvalResult evaluate(Trainer& trainer) {
    const std::atomic<bool> cancel = false;
    return trainer.evaluate(cancel);
  }
  LogStore log{1000};
};

TEST_F(TrainerTest, BothTechniquesReachAStatedQualityOnHeldOutViews) {
  for (const Technique technique : {Technique::Vanilla, Technique::Mcmc}) {
    const TrainJob job = quickJob(technique, 400);
    Trainer trainer(context, registry, log, job, room());
    trainer.start();
    const EvalResult before = evaluate(trainer);
    while (!trainer.finished()) trainer.step();
    const EvalResult after = evaluate(trainer);
    EXPECT_EQ(after.views, 4u);
    EXPECT_GT(after.psnr, 21.0f) << techniqueWord(technique);
    EXPECT_GT(after.psnr, before.psnr + 5) << techniqueWord(technique);
    EXPECT_GT(trainer.splats(), 1500u) << "neither technique stays with its seeds";
    EXPECT_LT(trainer.loss(), 0.2f);
  }
}

TEST_F(TrainerTest, AResumedRunTakesTheStepThatAnUnstoppedOneTakes) {
  test::TempFolder folder;
  const auto path = folder.path() / "checkpoint.quor";
  for (const Technique technique : {Technique::Vanilla, Technique::Mcmc}) {
    const TrainJob job = quickJob(technique, 200);
    Trainer unstopped(context, registry, log, job, room());
    unstopped.start();
    // An epoch of 16 views ends here, so that both draw the next one afresh.
    while (unstopped.stepsDone() < 111) unstopped.step();
    unstopped.writeCheckpoint(path);

    const Checkpoint checkpoint = readCheckpoint(path);
    EXPECT_EQ(checkpoint.header.step, 111u);
    Trainer resumed(context, registry, log, job, room());
    resumed.resume(checkpoint);
    const GaussianSet before = resumed.download();
    EXPECT_EQ(before.positions, unstopped.download().positions) << "restored bit for bit";
    for (int i = 0; i < 5; ++i) resumed.step();
    const EvalResult result = evaluate(resumed);
    EXPECT_GT(result.psnr, evaluate(unstopped).psnr - 1) << "moments and parameters go on together";
  }
  TrainJob other = quickJob(Technique::Vanilla, 200);
  Trainer trainer(context, registry, log, other, room());
  EXPECT_EQ(test::thrownText([&] { trainer.resume(readCheckpoint(path)); }),
            "The checkpoint was trained with MCMC; continue it with the same technique, or train from the start.");
  TrainJob finished = quickJob(Technique::Mcmc, 111);
  Trainer done(context, registry, log, finished, room());
  EXPECT_EQ(test::thrownText([&] { done.resume(readCheckpoint(path)); }),
            "The checkpoint is already at step 111. Set more iterations than that to continue training it.");
}

TEST_F(TrainerTest, PhotographsComeOverTheSameWhetherResidentOrNot) {
  PhotoStore resident(context, room().training, UINT64_MAX), streamed(context, room().training, 0);
  for (const int level : {2, 0}) {
    resident.setLevel(transfer, level);
    streamed.setLevel(transfer, level);
    ASSERT_TRUE(resident.resident());
    ASSERT_FALSE(streamed.resident());
    for (const size_t view : {size_t{0}, size_t{5}, size_t{5}, size_t{15}, size_t{1}}) {
      streamed.prefetch(view == 1 ? 7 : view);  // also one that is then not asked for
      const GpuBuffer& a = resident.fetch(stream, view);
      const GpuBuffer& b = streamed.fetch(stream, view);
      stream.submit();
      EXPECT_EQ(readBuffer<uint8_t>(a), readBuffer<uint8_t>(b)) << "view " << view << " level " << level;
      const size_t bytes = static_cast<size_t>(resident.camera(view).width * resident.camera(view).height) * 3;
      const View expected = viewAtLevel(room().training[view], level);
      auto bytesOnGpu = readBuffer<uint8_t>(a);
      bytesOnGpu.resize(bytes);
      EXPECT_EQ(bytesOnGpu, expected.image.rgb);
    }
  }
}

}  // namespace
}  // namespace quor::gs
