// Writes a training's results: the scene in the formats that the job asks for, and the checkpoint.
#pragma once

#include "base/log/log_store.h"
#include "gs/train/run_control.h"
#include "gs/train/trainer.h"

namespace quor::gs {

// Enters the files written in `result`. A checkpoint that cannot be written is a warning in the log; a scene that
// cannot be written is thrown, but only after the checkpoint, so that the training is not lost with it. Returns the
// checkpoint.
Checkpoint exportTraining(Trainer& trainer, const TrainJob& job, RunControl& control, LogStore& log,
                          TrainResult& result);

}  // namespace quor::gs
