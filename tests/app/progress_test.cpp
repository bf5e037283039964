// What a run prints while it works, into a pipe: the beginning of each piece of work and each result, once.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <future>

#include "app/output/progress_printer.h"
#include "pipeline/pipeline.h"
#include "support/fake_trainer.h"
#include "support/temp_folder.h"

namespace quor {
namespace {

TEST(ProgressPrinter, TellsEachPieceOfWorkAndEachResultOnce) {
  const test::TempFolder folder;
  Project project;
  project.root = folder / "capture_ombrelux";
  project.inputs = {{"/somewhere/clip.mp4", InputKind::Video}};
  project.ensureLayout();

  std::promise<void> counted, printed, matched, ended;
  const StageBody frames = [](Project&, const StageContext&) -> StageResult { return {"3 frames", {}}; };
  const StageBody cameras = [&](Project&, const StageContext& context) -> StageResult {
    for (int frame = 1; frame <= 3; ++frame) {
      context.report({.state = StageState::Running,
                      .message = "Reading features of frame " + std::to_string(frame),
                      .fraction = 0.1f * static_cast<float>(frame),
                      .part = 1});
    }
    counted.set_value();
    printed.get_future().wait();
    context.report({.state = StageState::Running, .message = "Matching", .fraction = 0.5f, .part = 2});
    matched.set_value();
    ended.get_future().wait();
    return {"3 images registered", {}};
  };
  const StageBody training = [](Project&, const StageContext&) -> StageResult { return {"9 splats", {}}; };

  LogStore log{100};
  test::FakeTrainer trainer;
  Pipeline pipeline(trainer, log, {}, nullptr, {frames, cameras, training});
  pipeline.open(project);
  testing::internal::CaptureStderr();
  {
    Console console(log, false);
    ProgressPrinter printer(pipeline, trainer, console);
    const auto look = [&] {
      for (int i = 0; i < 5; ++i) printer.update();
    };
    const auto run = pipeline.start(Stage::Frames, Stage::Train);
    counted.get_future().wait();
    look();
    printed.set_value();
    matched.get_future().wait();
    look();
    ended.set_value();
    run->waitFor(std::chrono::minutes(1));
    look();
    printer.finish();
  }
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "3 frames\nReading features of frame 3\nMatching\n3 images registered\n"
            "  train: 9 splats\n");
}

}  // namespace
}  // namespace quor
