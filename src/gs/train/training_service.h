// The trainer's face to those who only start jobs and watch them. Engine is the one that trains; a test of the pipeline
// puts something in its place that needs no GPU.
#pragma once

#include <optional>

#include "gs/train/train_job.h"

namespace quor::gs {

class TrainingService {
 public:
  virtual ~TrainingService() = default;

  // Starts a job; std::logic_error while one runs. A failure of the job is in status() (state Failed, its sentence).
  virtual void startTraining(TrainJob job) = 0;

  // End after the current step and still export.
  virtual void requestStop() = 0;
  // End at the next check without any export: state Stopped, text "Cancelled".
  virtual void cancel() = 0;

  virtual bool running() const = 0;
  virtual TrainStatus status() const = 0;
  // Blocks until the job has ended; the result of a job that finished or was stopped early, nothing of one that failed
  // or was cancelled (status() says which).
  virtual std::optional<TrainResult> wait() = 0;
};

}  // namespace quor::gs
