// Carries out a sampling plan.
#pragma once

#include "base/log/log_store.h"
#include "base/process/tool_finder.h"
#include "ingest/frame_extractor.h"
#include "ingest/sampling.h"

namespace quor {

// The surroundings of an extraction.
struct SamplingContext {
  LogStore& log;
  const std::optional<ToolLocation>& ffmpeg;
  const std::function<bool()>& cancelled;
  const IngestProgress& progress;
};

// Numbers of the frames that every output of the plan has, ascending; there are no other frame files of the plan in its
// folder then. `file` is null when the video could not be opened here for `failure`. In-process first; when that fails,
// its files are deleted and the ffmpeg program takes over. Throws IngestError.
std::vector<int64_t> sampleVideo(VideoFile* file, const std::string& failure, const SamplingPlan& plan,
                                 const SamplingContext& context);

// In-process alone. Throws DecodeFailure too; `written` then holds the files that it has begun.
std::vector<int64_t> sampleInProcess(VideoFile& file, const SamplingPlan& plan, const SamplingContext& context,
                                     std::vector<std::filesystem::path>& written);

}  // namespace quor
