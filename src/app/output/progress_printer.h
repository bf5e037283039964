// How the command line watches a pipeline at work: the progress of its stages on the console, and the user's
// interrupts.
#pragma once

#include <array>
#include <chrono>
#include <functional>
#include <string>

#include "app/output/console.h"
#include "pipeline/pipeline.h"

namespace quor {

// Prints the messages of one run's stages, each once, and the progress of training on one live line or a line every few
// seconds. Call update() many times a second.
class ProgressPrinter {
 public:
  ProgressPrinter(const Pipeline& pipeline, const gs::TrainingService& trainer, Console& console)
      : pipeline_(pipeline), trainer_(trainer), console_(console) {}

  void update();
  // Call when the run has ended: prints what update() has not seen.
  void finish();

 private:
  void showResults(Stage until);
  void showResult(Stage stage);
  void showTraining();
  void showMessage(Stage stage, const StageStatus& status);
  bool due(std::chrono::steady_clock::time_point& next) const;

  const Pipeline& pipeline_;
  const gs::TrainingService& trainer_;
  Console& console_;
  // What was last begun of each stage.
  struct Shown {
    StageState state = StageState::NotRun;
    int32_t part = 0;
  };
  std::array<Shown, kStageCount> shown_;
  std::chrono::steady_clock::time_point nextMessage_{};
  std::chrono::steady_clock::time_point nextTrainingLine_{};
};

// Tells the user what the first interrupt does to training that is under way.
void announceStop(const Pipeline& pipeline, const gs::TrainingService& trainer, Console& console);

// The user's interrupts on their way to a run: the first asks it to stop, any more to cancel. `announce` is called
// before a stop.
class Interrupts {
 public:
  using Action = std::function<void()>;
  Interrupts(Action announce, Action stop, Action cancel)
      : announce_(std::move(announce)), stop_(std::move(stop)), cancel_(std::move(cancel)) {}

  void update();

 private:
  const Action announce_, stop_, cancel_;
  int handled_ = 0;
};

}  // namespace quor
