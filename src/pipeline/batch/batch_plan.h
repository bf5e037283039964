// Decides at which stage an item of a batch begins, from the files on the disk alone: it does not matter how the last
// attempt ended.
//
// A stage puts its result in place by a rename as its last act, and an old result is removed before the stage runs
// again. A result that is there is therefore complete and was made from the settings in project.json. Of an item that
// was begun before (it has its projectRoot) the next attempt keeps
//   - the frames, when there are some and the inputs, the ingest settings and sparse.singleCamera are as they were,
//   - the camera solve (colmap/undistorted), when the frames are kept and the other sparse settings are as they were,
//   - the checkpoint, when the cameras are kept, its technique is the item's and its step is below the iterations.
// A wrapped dataset brings its frames and cameras. A failed item whose cameras were never solved starts over: its media
// have probably been changed. An item that was interrupted after its scene and the last checkpoint had been
// written, with the training settings as they are, is finished. Every other item starts at its first stage.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "pipeline/batch/batch_file.h"
#include "pipeline/pipeline.h"

namespace quor {

struct BatchPlan {
  Project project;  // with the item's settings, in its folder
  Stage from = Stage::Frames;
  bool resume = false;                     // training goes on from the checkpoint
  std::optional<uint64_t> finishedSplats;  // of the scene, when nothing is left to do
  std::string found;                       // log text about what an earlier attempt left; may be empty
};

// The folder of a new item is `destination`/NAME_ombrelux, or the first of NAME_ombrelux_2, ... that no other item has
// and that is not there, is empty or holds the project of the very same sources, which then starts over as with `run`.
// Reads only. Throws std::runtime_error when there is nothing to build from.
BatchPlan planItem(const Batch& batch, size_t index);

// Removes the frames and cameras that the plan does not keep and a checkpoint that training does not go on from, then
// saves the project. An earlier scene stays until there is a new one. Throws std::runtime_error.
void preparePlan(const BatchPlan& plan);

}  // namespace quor
