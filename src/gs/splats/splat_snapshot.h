// A copy of all splats and both their moments in memory that the host can read, so that training can go on while the
// copy is written to a file.
#pragma once

#include <array>
#include <cstdint>

#include "gpu/compute/compute_stream.h"
#include "gpu/memory/gpu_buffer.h"
#include "gs/files/checkpoint.h"
#include "gs/splats/splat_store.h"

namespace quor::gs {

class SplatSnapshot {
 public:
  explicit SplatSnapshot(VulkanContext& context) : context_(context) {}

  // Replaces the copy, in one submission. The memory is kept for the next time: most of the time that a first copy
  // takes goes into getting its memory from the system.
  void take(ComputeStream& stream, const SplatStore& splats);

  // Splats that there is memory for already.
  uint64_t room() const { return room_; }

  // Valid until the next take().
  CheckpointArrays arrays() const;

 private:
  using Buffers = std::array<GpuBuffer, kGroupCount>;

  void makeRoom(uint64_t splats);

  VulkanContext& context_;
  uint64_t count_ = 0;
  uint64_t room_ = 0;
  Buffers values_, firstMoments_, secondMoments_;
};

}  // namespace quor::gs
