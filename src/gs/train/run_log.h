// The block that every training run appends to its log, also one that fails or is cancelled.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>

#include "gs/train/train_job.h"

namespace quor::gs {

struct RunLogEntry {
  std::string title;  // after the time in the block's first line
  TrainState result = TrainState::Done;
  Technique technique = Technique::Vanilla;
  int32_t steps = 0;
  int32_t iterations = 0;
  int32_t resumedFrom = 0;  // 0 when the run did not resume
  uint64_t splats = 0;
  uint64_t budget = 0;  // 0 when none applied
  double seconds = 0;
  double msPerStep = 0;
  int32_t resolution = 0;  // 0 = native
  int32_t downscaleLevels = 0;
  int32_t shDegree = 0;
  EvalResult evaluation;  // views = 0: no line
  std::string device;
  std::string scene;   // path, empty: no line
  std::string reason;  // why it failed, empty: no line
};

// The block's text, ending in a line feed; `time` is local wall-clock seconds since 1970.
std::string formatRunLogEntry(const RunLogEntry& entry, int64_t time);

// Appends the block with the time now. Never throws; false when the file could not be written.
bool appendRunLog(const std::filesystem::path& file, const RunLogEntry& entry) noexcept;

}  // namespace quor::gs
