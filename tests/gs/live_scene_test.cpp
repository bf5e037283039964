// Looking at a training while it runs.
#include "gs/splats/live_scene.h"

#include <gtest/gtest.h>

#include <thread>

#include "gs/files/ply.h"
#include "gs/train/engine.h"
#include "support/gpu_fixture.h"
#include "support/random_splats.h"
#include "support/small_capture.h"
#include "support/temp_folder.h"
#include "support/train_outputs.h"
#include "support/wait_until.h"

namespace quor::gs {
namespace {

class LiveSceneTest : public GpuTest {
 protected:
  LiveScene live{context};
};

TEST_F(LiveSceneTest, CopiesOnlyWhatIsWantedAndNobodyReads) {
  SplatStore store(context, SplatStore::Use::Training);
  const GaussianSet small = test::randomScene(50, 1), large = test::randomScene(300, 2);
  store.upload(transfer, small);
  EXPECT_FALSE(live.offer(stream, store, 1));
  EXPECT_EQ(live.read().version(), 0u);
  live.want();
  EXPECT_TRUE(live.offer(stream, store, 1));
  EXPECT_FALSE(live.wanted());
  store.upload(transfer, large);  // the copy stays
  live.want();
  {
    const LiveScene::Reading reading = live.read();
    EXPECT_EQ(reading.splats().download(transfer).shRest, small.shRest);
    EXPECT_EQ(reading.shDegree(), 1);
    bool offered = true;
    std::thread([&] { offered = live.offer(stream, store, 2); }).join();
    EXPECT_FALSE(offered);
  }
  EXPECT_TRUE(live.offer(stream, store, 2));
  const LiveScene::Reading reading = live.read();
  EXPECT_EQ(reading.version(), 2u);
  const GaussianSet copy = reading.splats().download(transfer);
  EXPECT_EQ(copy.positions, large.positions);
  EXPECT_EQ(copy.opacities, large.opacities);
}

TEST_F(LiveSceneTest, TrainingGoesOnWhileSomebodyReads) {
  const test::TempFolder folder;
  test::writeSmallCapture(folder / "room");
  LogStore log(100);
  Engine engine(context, log, &live);
  TrainJob job;
  job.dataset = folder / "room";
  job.output = test::outputsIn(folder / "output");
  job.iterations = 60;
  job.downscaleLevels = 0;
  job.evalMode = false;
  job.liveView = true;
  engine.startTraining(job);
  live.want();
  test::waitUntil([&] { return !engine.running() || live.read().version() > 0; });
  uint32_t seen = 0;
  {
    const LiveScene::Reading reading = live.read();
    live.want();
    seen = reading.splats().count();
    const auto result = engine.wait();  // all the steps that are left
    ASSERT_TRUE(result) << engine.status().text;
    EXPECT_EQ(reading.splats().count(), seen);
    EXPECT_EQ(readPly(*result->ply).count, result->splats);
  }
  EXPECT_GT(seen, 0u);
}

}  // namespace
}  // namespace quor::gs
