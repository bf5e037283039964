#include "gs/train/resume.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>

#include "base/text/text.h"
#include "gs/splats/splat_store.h"
#include "gs/train/schedule.h"

namespace quor::gs {
namespace {

// Relative; the header's extent is a float, and a model's text form rounds the cameras it is taken from.
constexpr double kSameExtent = 1e-4;

bool known(Technique technique) {
  return technique == Technique::Vanilla || technique == Technique::Mcmc;
}

}  // namespace

void requireContinuable(const TrainJob& job, const CheckpointHeader& header) {
  if (!known(header.technique)) {
    throw std::runtime_error(
        formatText("The checkpoint was trained with a technique that this build does not know (%u); train from the "
                   "start.",
                   static_cast<uint32_t>(header.technique)));
  }
  if (header.technique != job.technique) {
    throw std::runtime_error(std::string("The checkpoint was trained with ") + techniqueWord(header.technique) +
                             "; continue it with the same technique, or train from the start.");
  }
  if (static_cast<int64_t>(header.step) >= job.iterations) {
    throw std::runtime_error(formatText(
        "The checkpoint is already at step %u. Set more iterations than that to continue training it.", header.step));
  }
}

TrainJob continuedJob(TrainJob job, const CheckpointHeader& header) {
  requireContinuable(job, header);
  job.seed = header.seed;
  job.downscaleLevels = header.downscaleLevels;
  if (header.stepsPerLevel != 0) job.stepsPerLevel = header.stepsPerLevel;
  job.shDegree = std::max(job.shDegree, header.shDegree);
  return resolved(job);
}

void requireSameScene(const CheckpointHeader& header, double extent) {
  const double written = static_cast<double>(header.sceneExtent);
  if (std::abs(written - extent) <= kSameExtent * extent) return;
  throw std::runtime_error(formatText(
      "The checkpoint belongs to another dataset: its cameras span a scene of extent %g, this dataset's one of %g. "
      "Put the cameras and photographs back that it was trained on, or train from the start.",
      written, extent));
}

void requireRoom(const CheckpointHeader& header, const DeviceLimits& limits) {
  const uint64_t byMemory = limits.freeMemory / SplatStore::kTrainingBytesPerSplat;
  const uint64_t byBuffer = std::min(limits.maxAllocation, limits.maxStorageRange) / (kGroupWidths[kShRest] * 4);
  const uint64_t most = std::min(byMemory, byBuffer);
  if (header.count <= most) return;
  throw std::runtime_error(
      formatText("The checkpoint's %llu splats do not fit this GPU, which has room for %llu. Continue it on a GPU with "
                 "more memory, or train from the start.",
                 static_cast<unsigned long long>(header.count), static_cast<unsigned long long>(most)));
}

}  // namespace quor::gs
