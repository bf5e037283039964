#include "gs/train/train_job.h"

namespace quor::gs {

const char* techniqueWord(Technique technique) {
  return technique == Technique::Vanilla ? "Vanilla" : "MCMC";
}

const char* trainStateName(TrainState state) {
  switch (state) {
    case TrainState::Idle:
      return "Idle";
    case TrainState::Loading:
      return "Loading";
    case TrainState::Training:
      return "Training";
    case TrainState::Evaluating:
      return "Evaluating";
    case TrainState::Exporting:
      return "Exporting";
    case TrainState::Done:
      return "Done";
    case TrainState::Failed:
      return "Failed";
    case TrainState::Stopped:
      return "Stopped";
  }
  return "Idle";
}

}  // namespace quor::gs
