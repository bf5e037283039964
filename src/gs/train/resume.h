// Whether and how a run can continue from a checkpoint, judged by the checkpoint's header.
//
// A checkpoint holds parameters, moments, step and generator state; everything else that decides the next step follows
// from the job and the step: the view (gs/data/view_order.h), the image level, the active SH degree, learning rates,
// passes and opacity resets. The only exception are Vanilla's gradient statistics since the last pass. They are means
// over views, so the first pass after a resume decides by fewer views, not by different ones; checkpoints written
// during a run are therefore taken right after a pass.
#pragma once

#include "gs/files/checkpoint.h"
#include "gs/splats/splat_cap.h"
#include "gs/train/train_job.h"

namespace quor::gs {

// Throws std::runtime_error with a whole sentence, like all functions here, when the checkpoint is of another technique
// or the job's iterations are already done.
void requireContinuable(const TrainJob& job, const CheckpointHeader& header);

// The resolved job with what a resumed run takes over from its checkpoint: seed, levels and the steps between them, and
// an SH degree no lower than the one reached.
TrainJob continuedJob(TrainJob job, const CheckpointHeader& header);

// Throws std::runtime_error unless the checkpoint's scene extent is the dataset's: after a new camera solve its splats
// no longer match the cameras.
void requireSameScene(const CheckpointHeader& header, double extent);

// Throws std::runtime_error when the device cannot train that many splats.
void requireRoom(const CheckpointHeader& header, const DeviceLimits& limits);

}  // namespace quor::gs
