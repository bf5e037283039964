// The ffmpeg program carries out a sampling plan where FFmpeg's libraries, as they are installed here, cannot.
#pragma once

#include "ingest/video/video_sampler.h"

namespace quor {

// The frames written, by number: a number comes once for every output that has it. Throws IngestError when there is no
// ffmpeg or it fails.
std::vector<int64_t> sampleWithFfmpeg(const SamplingPlan& plan, const SamplingContext& context);

}  // namespace quor
