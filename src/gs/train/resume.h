// What a checkpoint's header says about the run that wants to go on from it: whether it can, and as what job.
//
// A checkpoint holds parameters, moments, step and generator state; everything else that decides the next step follows
// from the job and the step: the view (gs/view_order.h), the image level, the active SH degree, learning rates, passes
// and opacity resets. Only Vanilla's gradient statistics since the last pass are in neither. They are means over views,
// so the first pass after a resume decides by fewer views, not by different ones; checkpoints that are written during a
// run are therefore taken where there are none.
#pragma once

#include "gs/files/checkpoint.h"
#include "gs/splats/splat_cap.h"
#include "gs/train/train_job.h"

namespace quor::gs {

// Throws std::runtime_error, as do all of these with a whole sentence, when the job's technique is another one or its
// iterations have been done already.
void requireContinuable(const TrainJob& job, const CheckpointHeader& header);

// The resolved job with what a resumed run takes over from its checkpoint: seed, levels and the steps between them, and
// an SH degree no lower than the one reached.
TrainJob continuedJob(TrainJob job, const CheckpointHeader& header);

// Throws std::runtime_error unless the checkpoint's scene extent is the dataset's: cameras that were solved anew stand
// elsewhere, and its splats mean nothing among them.
void requireSameScene(const CheckpointHeader& header, double extent);

// Throws std::runtime_error when no training of so many splats can fit the device.
void requireRoom(const CheckpointHeader& header, const DeviceLimits& limits);

// Whether the run that wrote the checkpoint has had an opacity reset.
bool opacitiesWereReset(const TrainJob& job, const CheckpointHeader& header);

}  // namespace quor::gs
