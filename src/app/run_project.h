// Runs a project through its stages in front of the user and prints what came of it.
#pragma once

#include "app/console.h"
#include "pipeline/pipeline.h"

namespace quor {

inline constexpr int kExitSuccess = 0;
inline constexpr int kExitFailure = 1;
inline constexpr int kExitUsage = 2;
inline constexpr int kExitCancelled = 130;

// Runs the stages `from` to train of the project that is open in `pipeline`, follows them on `console`, and prints the
// result on standard output: the path of scene.ply or, with `json`, the result document. An interrupt asks training to
// stop; in an earlier stage, or the second time, it cancels. Returns the exit code.
int drive(Pipeline& pipeline, const gs::TrainingService& trainer, Console& console, const Project& project, Stage from,
          bool json);

}  // namespace quor
