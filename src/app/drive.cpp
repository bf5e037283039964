#include "app/drive.h"

#include <chrono>
#include <cmath>
#include <memory>
#include <nlohmann/json.hpp>
#include <thread>

#include "app/follow.h"
#include "base/paths.h"

namespace quor {

namespace {

constexpr std::chrono::milliseconds kPoll{50};

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
  if (writeStandardOutput(text)) return kExitSuccess;
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
  return outcome->result == kCancelled ? kExitCancelled : kExitFailure;
}

}  // namespace quor
