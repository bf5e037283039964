// How the command line watches a pipeline at work: what the stages say on the console, and the user's interrupts on
// their way to the pipeline.
#pragma once

#include <array>
#include <chrono>
#include <functional>
#include <string>

#include "app/console.h"
#include "pipeline/pipeline.h"

namespace quor {

// Shows what the stages of one run say, each message once, and the progress of training on one live line or a line now
// and then. To be asked many times a second.
class Follower {
 public:
  Follower(const Pipeline& pipeline, const gs::TrainingService& trainer, Console& console)
      : pipeline_(pipeline), trainer_(trainer), console_(console) {}

  void update();
  // When the run has ended: what update() has not seen.
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
  std::array<std::string, kStageCount> last_;
  std::chrono::steady_clock::time_point nextMessage_{};
  std::chrono::steady_clock::time_point nextTrainingLine_{};
};

// The first interrupt asks to stop, any more to cancel.
class Interrupts {
 public:
  Interrupts(const Pipeline& pipeline, const gs::TrainingService& trainer, Console& console, std::function<void()> stop,
             std::function<void()> cancel)
      : pipeline_(pipeline), trainer_(trainer), console_(console), stop_(std::move(stop)), cancel_(std::move(cancel)) {}

  void update();

 private:
  void announceStop();

  const Pipeline& pipeline_;
  const gs::TrainingService& trainer_;
  Console& console_;
  const std::function<void()> stop_, cancel_;
  int handled_ = 0;
};

}  // namespace quor
