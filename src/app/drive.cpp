#include "app/drive.h"

#include <chrono>
#include <cmath>
#include <cstdio>
#include <memory>
#include <nlohmann/json.hpp>
#include <thread>

#include "base/paths.h"
#include "base/terminal.h"
#include "base/text.h"

namespace quor {

namespace {

using Clock = std::chrono::steady_clock;
constexpr std::chrono::milliseconds kPoll{50};
constexpr std::chrono::milliseconds kLiveInterval{200};
constexpr std::chrono::seconds kLineInterval{5};

// Whether two messages differ in their numbers only: then the second is progress, not news.
bool sameButForNumbers(const std::string& a, const std::string& b) {
  const auto words = [](const std::string& text) {
    std::string kept;
    for (const char c : text) {
      if (c < '0' || c > '9') kept += c;
    }
    return kept;
  };
  return words(a) == words(b);
}

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

// Shows what the stages say, each message once, and the progress of training on one live line or a line now and then.
class Follower {
 public:
  Follower(const Pipeline& pipeline, const gs::TrainingService& trainer, Console& console)
      : pipeline_(pipeline), trainer_(trainer), console_(console) {}

  void update() {
    console_.printLog();
    const Stage stage = pipeline_.currentStage();
    showResults(stage);
    const StageStatus status = pipeline_.status(stage);
    if (status.state == StageState::Running && stage == Stage::Train && status.message.starts_with("Step ")) {
      showTraining();
    } else {
      showMessage(stage, status);
    }
  }

  void finish() {
    for (size_t i = 0; i < kStageCount; ++i) showResult(static_cast<Stage>(i));
  }

 private:
  // Stages may have ended between two looks.
  void showResults(Stage until) {
    for (size_t i = 0; i < static_cast<size_t>(until); ++i) showResult(static_cast<Stage>(i));
  }
  void showResult(Stage stage) {
    const StageStatus status = pipeline_.status(stage);
    if (status.state == StageState::Done) showMessage(stage, status);
  }

  void showTraining() {
    const gs::TrainStatus status = trainer_.status();
    if (status.state != gs::TrainState::Training || !due(nextTrainingLine_)) return;
    const std::string line = trainingLine(status);
    if (console_.isTerminal()) {
      console_.live(line + timeLeft(status.secondsLeft));
    } else {
      console_.message(line);
    }
  }

  void showMessage(Stage stage, const StageStatus& status) {
    // A failure is printed by drive() as the run's error.
    if (status.state == StageState::NotRun || status.state == StageState::Failed || status.message.empty()) return;
    const std::string progressText = share(status.fraction) + timeLeft(status.secondsLeft);
    std::string line = stage == Stage::Train ? "  train: " + status.message : status.message;
    if (status.message == "Starting") line = stageName(stage);  // says more on a line of its own
    std::string& last = last_[static_cast<size_t>(stage)];
    const bool running = status.state == StageState::Running;
    if (running && console_.isTerminal()) {
      if (due(nextMessage_)) {
        console_.live((stage == Stage::Train ? line : std::string(stageName(stage)) + ": " + line) + progressText);
      }
      return;
    }
    const bool progress = running && sameButForNumbers(status.message, last);
    if (progress ? progressText.empty() || !due(nextMessage_) : status.message == last) return;
    last = status.message;
    console_.message(progress ? line + progressText : line, progress ? std::string() : status.message);
  }

  bool due(Clock::time_point& next) const {
    const Clock::time_point now = Clock::now();
    if (now < next) return false;
    next = now + (console_.isTerminal() ? Clock::duration(kLiveInterval) : Clock::duration(kLineInterval));
    return true;
  }

  const Pipeline& pipeline_;
  const gs::TrainingService& trainer_;
  Console& console_;
  std::array<std::string, kStageCount> last_;
  Clock::time_point nextMessage_{};
  Clock::time_point nextTrainingLine_{};
};

// Passes interrupts on to the pipeline: the first asks training to stop, any more cancel.
class Interrupts {
 public:
  Interrupts(Pipeline& pipeline, const gs::TrainingService& trainer, Console& console)
      : pipeline_(pipeline), trainer_(trainer), console_(console) {}

  void update() {
    const int count = interruptCount();
    if (count == handled_) return;
    if (handled_ == 0 && count == 1) {
      if (pipeline_.currentStage() == Stage::Train) announceStop();
      pipeline_.requestStop();
    } else {
      pipeline_.cancel();
    }
    handled_ = count;
  }

 private:
  void announceStop() {
    const gs::TrainState state = trainer_.status().state;
    if (state == gs::TrainState::Training) {
      console_.message("Stopping; interrupt again to end without writing the scene.");
    } else if (state == gs::TrainState::Exporting || state == gs::TrainState::Evaluating) {
      console_.message("Training is over, finishing; interrupt again to end at once.");
    }
  }

  Pipeline& pipeline_;
  const gs::TrainingService& trainer_;
  Console& console_;
  int handled_ = 0;
};

struct Outcome {
  bool success = false;
  std::string result;
};

int printResult(const Project& project, const std::optional<gs::TrainResult>& result, Console& console, bool json) {
  std::string text;
  if (result && json) {
    text = resultDocument(project, *result) + "\n";
  } else if (result && result->ply) {
    text = toUtf8(*result->ply) + "\n";
  }
  if (std::fwrite(text.data(), 1, text.size(), stdout) == text.size() && std::fflush(stdout) == 0) return kExitSuccess;
  console.error("The result could not be written to standard output.");
  return kExitFailure;
}

double rounded(float value) {
  return std::round(static_cast<double>(value) * 1e4) / 1e4;
}

}  // namespace

std::string resultDocument(const Project& project, const gs::TrainResult& result) {
  nlohmann::ordered_json document;
  document["project"] = toUtf8(project.root);
  document["splats"] = result.splats;
  document["iterations"] = result.steps;
  document["seconds"] = std::round(result.seconds * 1e3) / 1e3;
  if (result.ply) document["ply"] = toUtf8(*result.ply);
  if (result.splat) document["splat"] = toUtf8(*result.splat);
  if (result.checkpoint) document["checkpoint"] = toUtf8(*result.checkpoint);
  if (result.evaluation.views > 0) {
    document["psnr"] = rounded(result.evaluation.psnr);
    document["ssim"] = rounded(result.evaluation.ssim);
  }
  // A path may hold bytes that are no UTF-8; a replacement character is better than no document.
  return document.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

int drive(Pipeline& pipeline, const gs::TrainingService& trainer, Console& console, const Project& project, Stage from,
          bool json) {
  // Shared with the worker, which may outlive this function when something in here throws.
  const auto outcome = std::make_shared<Outcome>();
  pipeline.open(project);
  const bool started = pipeline.start(from, Stage::Train, [outcome](bool success, const std::string& result) {
    *outcome = {success, result};
  });
  if (!started) {
    console.error("the pipeline could not start");
    return kExitFailure;
  }

  Follower follower(pipeline, trainer, console);
  Interrupts interrupts(pipeline, trainer, console);
  while (pipeline.busy()) {
    interrupts.update();
    follower.update();
    std::this_thread::sleep_for(kPoll);
  }
  console.printLog();
  follower.finish();
  console.finishLog(outcome->success ? std::string() : outcome->result);

  if (outcome->success) return printResult(project, pipeline.trainResult(), console, json);
  console.error(outcome->result);
  return outcome->result == kCancelled ? kExitCancelled : kExitFailure;
}

}  // namespace quor
