#include "gs/train/scene_export.h"

#include <exception>

#include "base/text/text.h"
#include "gs/files/ply.h"
#include "gs/files/splat_file.h"

namespace quor::gs {
namespace {

void writeScene(Trainer& trainer, const TrainJob& job, TrainResult& result) {
  const GaussianSet set = trainer.download();
  const std::string comment =
      std::string("Ombrelux ") + techniqueWord(job.technique) + formatText(" iteration %d", trainer.stepsDone());
  if (job.exportPly) {
    writePly(job.output.scene, set, comment);
    result.ply = job.output.scene;
  }
  if (job.exportSplat) {
    writeSplat(job.output.splat, set);
    result.splat = job.output.splat;
  }
}

}  // namespace

Checkpoint exportTraining(Trainer& trainer, const TrainJob& job, RunControl& control, LogStore& log,
                          TrainResult& result) {
  control.report(TrainState::Exporting, "Writing the scene");
  std::exception_ptr failure;
  try {
    writeScene(trainer, job, result);
  } catch (const std::exception&) {
    failure = std::current_exception();
  }
  control.report(TrainState::Exporting, "Writing the checkpoint");
  Checkpoint checkpoint;
  try {
    checkpoint = trainer.checkpoint();
    writeCheckpoint(job.output.checkpoint, checkpoint);
    result.checkpoint = job.output.checkpoint;
  } catch (const std::exception& e) {
    log.warning(std::string("Could not write the checkpoint: ") + e.what());
  }
  if (failure) std::rethrow_exception(failure);
  return checkpoint;
}

}  // namespace quor::gs
