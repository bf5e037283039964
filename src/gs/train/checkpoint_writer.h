// Writes checkpoints at intervals during a run, on a thread of its own: training only waits for the copy from the GPU.
// Writes one file at a time; a file that cannot be written is a warning in the log and the run goes on.
#pragma once

#include <chrono>
#include <filesystem>
#include <functional>
#include <future>

#include "base/log/log_store.h"
#include "gs/files/checkpoint.h"
#include "gs/splats/splat_snapshot.h"

namespace quor::gs {

class CheckpointWriter {
 public:
  // `seconds` from now, and from each start(), to the next one; 0 = never.
  CheckpointWriter(VulkanContext& context, std::filesystem::path path, double seconds, LogStore& log);
  ~CheckpointWriter() { wait(); }
  CheckpointWriter(const CheckpointWriter&) = delete;
  CheckpointWriter& operator=(const CheckpointWriter&) = delete;

  // Whether the interval has passed and the previous file is written. Waits for a good moment, at most twice the
  // interval.
  bool due(bool goodMoment) const;

  // Lets `take` fill a copy and begins to write it, unless the host's memory has no room for so many splats.
  void start(uint64_t splats, const std::function<CheckpointHeader(SplatSnapshot&)>& take) noexcept;

  // Until the file is written.
  void wait();

 private:
  using Clock = std::chrono::steady_clock;

  bool hasRoomFor(uint64_t splats);
  void write(const CheckpointHeader& header) noexcept;

  std::filesystem::path path_;
  std::chrono::duration<double> interval_;
  LogStore& log_;
  Clock::time_point last_ = Clock::now();
  SplatSnapshot copy_;
  bool warnedOfMemory_ = false;
  std::future<void> writing_;
};

}  // namespace quor::gs
