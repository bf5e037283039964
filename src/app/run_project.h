// Runs a project through its stages, shows their progress and prints the result.
#pragma once

#include "app/output/console.h"
#include "pipeline/pipeline.h"

namespace quor {

inline constexpr int kExitSuccess = 0;
inline constexpr int kExitFailure = 1;
inline constexpr int kExitUsage = 2;
inline constexpr int kExitCancelled = 130;

// Opens the project in `pipeline`, runs the stages `from` to train, follows them on `console`, and prints the result on
// standard output: the path of scene.ply or, with `json`, the result document. An interrupt asks training to stop; in
// an earlier stage, or the second time, it cancels. Returns the exit code.
int drive(Pipeline& pipeline, const gs::TrainingService& trainer, Console& console, const Project& project, Stage from,
          bool json);

}  // namespace quor
