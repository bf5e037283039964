#include "gs/train/checkpoint_writer.h"

#include <exception>
#include <string>
#include <utility>

#include "base/host_memory.h"
#include "base/text/text.h"

namespace quor::gs {
namespace {

// Of the free memory that a copy may take; the rest is for what training itself still needs.
constexpr uint64_t kMemoryDivisor = 2;
// A good moment is waited for until this many intervals have passed.
constexpr double kPatience = 2;
constexpr const char* kFailed = "Could not write the checkpoint: ";

}  // namespace

CheckpointWriter::CheckpointWriter(VulkanContext& context, std::filesystem::path path, double seconds, LogStore& log)
    : path_(std::move(path)), interval_(seconds), log_(log), copy_(context) {}

bool CheckpointWriter::due(bool goodMoment) const {
  if (interval_.count() <= 0) return false;
  const std::chrono::duration<double> passed = Clock::now() - last_;
  if (passed < (goodMoment ? interval_ : kPatience * interval_)) return false;
  return !writing_.valid() || writing_.wait_for(std::chrono::seconds(0)) == std::future_status::ready;
}

bool CheckpointWriter::hasRoomFor(uint64_t splats) {
  if (splats <= copy_.room()) return true;
  if (splats <= availableHostMemory() / kMemoryDivisor / kCheckpointBytesPerSplat) return true;
  if (!warnedOfMemory_) {
    log_.warning(kFailed + formatText("the computer's memory has no room for a copy of %llu splats. Training goes on.",
                                      static_cast<unsigned long long>(splats)));
  }
  warnedOfMemory_ = true;
  return false;
}

void CheckpointWriter::start(uint64_t splats, const std::function<CheckpointHeader(SplatSnapshot&)>& take) noexcept {
  try {
    wait();
    last_ = Clock::now();
    if (!hasRoomFor(splats)) return;
    const CheckpointHeader header = take(copy_);
    writing_ = std::async(std::launch::async, [this, header] { write(header); });
  } catch (const std::exception& e) {
    log_.warning(std::string(kFailed) + e.what());
  }
}

void CheckpointWriter::wait() {
  if (writing_.valid()) writing_.get();
}

void CheckpointWriter::write(const CheckpointHeader& header) noexcept {
  try {
    writeCheckpoint(path_, header, copy_.arrays());
    log_.info(formatText("Checkpoint written at step %u", header.step));
  } catch (const std::exception& e) {
    log_.warning(std::string(kFailed) + e.what());
  }
}

}  // namespace quor::gs
