#include "app/run_project.h"

#include <memory>

#include "app/output/progress_printer.h"
#include "base/files/paths.h"
#include "pipeline/result_document.h"

namespace quor {

namespace {

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
  pipeline.open(project);
  const std::shared_ptr<PipelineRun> run = pipeline.start(from, Stage::Train);
  if (!run) {
    console.error("the pipeline could not start");
    return kExitFailure;
  }

  ProgressPrinter printer(pipeline, trainer, console);
  Interrupts interrupts([&] { announceStop(pipeline, trainer, console); }, [&] { run->requestStop(); },
                        [&] { run->cancel(); });
  const RunResult result = run->follow([&] {
    interrupts.update();
    printer.update();
  });
  console.printLog();
  printer.finish();

  if (result.success()) return printResult(project, result.training, console, json);
  console.error(result.text);
  return result.outcome == Outcome::Cancelled ? kExitCancelled : kExitFailure;
}

}  // namespace quor
