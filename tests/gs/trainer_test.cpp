// Whole training runs on a small made-up room, judged on views that were not trained on.
#include "gs/trainer.h"

#include <gtest/gtest.h>

#include "support/gpu_fixture.h"
#include "support/small_room.h"

namespace quor::gs {
namespace {

using test::quickJob;

const Dataset& room() {
  return test::smallRoom();
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
