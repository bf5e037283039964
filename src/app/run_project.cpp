#include "app/run_project.h"

#include <chrono>
#include <memory>
#include <thread>

#include "app/progress_printer.h"
#include "base/files/paths.h"
#include "pipeline/result_document.h"

namespace quor {

namespace {

constexpr std::chrono::milliseconds kPoll{50};

struct Ended {
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
  if (writeStandardOutput(text)) return kExitSuccess;
  console.error("The result could not be written to standard output.");
  return kExitFailure;
}

}  // namespace

int drive(Pipeline& pipeline, const gs::TrainingService& trainer, Console& console, const Project& project, Stage from,
          bool json) {
  // Shared with the worker, which may outlive this function when something in here throws.
  const auto outcome = std::make_shared<Ended>();
  pipeline.open(project);
  const bool started = pipeline.start(from, Stage::Train, [outcome](bool success, const std::string& result) {
    *outcome = {success, result};
  });
  if (!started) {
    console.error("the pipeline could not start");
    return kExitFailure;
  }

  Follower follower(pipeline, trainer, console);
  Interrupts interrupts(
      pipeline, trainer, console, [&] { pipeline.requestStop(); }, [&] { pipeline.cancel(); });
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
  return outcome->result == Cancelled().what() ? kExitCancelled : kExitFailure;
}

}  // namespace quor
