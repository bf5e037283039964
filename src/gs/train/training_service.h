// The interface to training for those who start jobs and watch them. Engine implements it; the pipeline's tests replace
// it with something that needs no GPU.
#pragma once

#include <optional>

#include "gs/train/train_job.h"

namespace quor::gs {

class TrainingService {
 public:
  virtual ~TrainingService() = default;

  // Starts a job; std::logic_error while one runs. A failure of the job is in status() (state Failed, its sentence).
  virtual void startTraining(TrainJob job) = 0;

  // Ends the job after the current step, and still exports. Before the first step it is cancel(): earlier results stay.
  virtual void requestStop() = 0;
  // Ends the job at the next check without any export: state Stopped, text "Cancelled".
  virtual void cancel() = 0;

  virtual bool running() const = 0;
  virtual TrainStatus status() const = 0;
  // Blocks until the job has ended. Returns the result of a job that finished or was stopped early; empty when it
  // failed or was cancelled (status() says which).
  virtual std::optional<TrainResult> wait() = 0;
};

}  // namespace quor::gs
