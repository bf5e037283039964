#include "app/output/progress_printer.h"

#include <cmath>

#include "base/process/terminal.h"
#include "base/text/text.h"

namespace quor {

namespace {

using Clock = std::chrono::steady_clock;
constexpr std::chrono::milliseconds kLiveInterval{200};
constexpr std::chrono::seconds kLineInterval{5};

std::string trainingLine(const gs::TrainStatus& status) {
  std::string line = formatText("  train: step %d/%d, %zu splats, %.1f ms/step", status.step, status.iterations,
                                static_cast<size_t>(status.splats), status.msPerStep);
  if (!std::isnan(status.loss)) line += formatText(", loss %.4f", static_cast<double>(status.loss));
  return line;
}

std::string share(float fraction) {
  return fraction >= 0 ? formatText(", %.0f %%", static_cast<double>(fraction) * 100) : std::string();
}

std::string timeLeft(double seconds) {
  if (!(seconds >= 0 && seconds < 360000)) return {};
  const int whole = static_cast<int>(std::lround(seconds));
  return formatText(", %d:%02d left", whole / 60, whole % 60);
}

}  // namespace

void ProgressPrinter::update() {
  console_.printLog();
  const Stage stage = pipeline_.currentStage();
  showResults(stage);
  const StageStatus status = pipeline_.status(stage);
  if (status.state == StageState::Running && status.step > 0) {
    showTraining();
  } else {
    showMessage(stage, status);
  }
}

void ProgressPrinter::finish() {
  for (size_t i = 0; i < kStageCount; ++i) showResult(static_cast<Stage>(i));
}

// Stages may have ended between two looks.
void ProgressPrinter::showResults(Stage until) {
  for (size_t i = 0; i < static_cast<size_t>(until); ++i) showResult(static_cast<Stage>(i));
}

void ProgressPrinter::showResult(Stage stage) {
  const StageStatus status = pipeline_.status(stage);
  if (status.state == StageState::Done) showMessage(stage, status);
}

void ProgressPrinter::showTraining() {
  const gs::TrainStatus status = trainer_.status();
  if (status.state != gs::TrainState::Training || !due(nextTrainingLine_)) return;
  const std::string line = trainingLine(status);
  if (console_.isTerminal()) {
    console_.live(line + timeLeft(status.secondsLeft));
  } else {
    console_.message(line);
  }
}

void ProgressPrinter::showMessage(Stage stage, const StageStatus& status) {
  // A failure is printed by the run itself, as its error.
  if (status.state == StageState::NotRun || status.state == StageState::Failed || status.message.empty()) return;
  const std::string progressText = share(status.fraction) + timeLeft(status.secondsLeft);
  std::string line = stage == Stage::Train ? "  train: " + status.message : status.message;
  const bool running = status.state == StageState::Running;
  if (running && status.part == 0) line = stageName(stage);  // says more on a line of its own
  if (running && console_.isTerminal()) {
    if (due(nextMessage_)) {
      console_.live((stage == Stage::Train ? line : std::string(stageName(stage)) + ": " + line) + progressText);
    }
    return;
  }
  Shown& shown = shown_[static_cast<size_t>(stage)];
  const bool news = shown.state != status.state || shown.part != status.part;
  if (news) nextMessage_ = {};
  if (!news && (!running || progressText.empty())) return;
  if (!due(nextMessage_)) return;
  shown = {status.state, status.part};
  console_.message(news ? line : line + progressText);
}

bool ProgressPrinter::due(Clock::time_point& next) const {
  const Clock::time_point now = Clock::now();
  if (now < next) return false;
  next = now + (console_.isTerminal() ? Clock::duration(kLiveInterval) : Clock::duration(kLineInterval));
  return true;
}

void Interrupts::update() {
  const int count = interruptCount();
  if (count == handled_) return;
  if (handled_ == 0 && count == 1) {
    announce_();
    stop_();
  } else {
    cancel_();
  }
  handled_ = count;
}

void announceStop(const Pipeline& pipeline, const gs::TrainingService& trainer, Console& console) {
  if (pipeline.currentStage() != Stage::Train) return;
  const gs::TrainState state = trainer.status().state;
  if (state == gs::TrainState::Training) {
    console.message("Stopping; interrupt again to end without writing the scene.");
  } else if (state == gs::TrainState::Exporting || state == gs::TrainState::Evaluating) {
    console.message("Training is over, finishing; interrupt again to end at once.");
  }
}

}  // namespace quor
