// Records kernel dispatches, fills and copies into one command buffer and submits it. A command that reads or writes
// what one before it writes, or writes what one before it reads, runs after it; others may run side by side. One
// thread's own.
#pragma once

#include <volk.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

#include "gpu/compute/command_buffer.h"
#include "gpu/compute/kernel_interface.h"
#include "gpu/compute/kernel_registry.h"
#include "gpu/compute/stage_timer.h"
#include "gpu/memory/gpu_buffer.h"

namespace quor::gs {

class VulkanContext;

class ComputeStream {
 public:
  ComputeStream(VulkanContext& context, KernelRegistry& registry);
  ~ComputeStream();  // a pending recording is dropped
  ComputeStream(const ComputeStream&) = delete;
  ComputeStream& operator=(const ComputeStream&) = delete;

  // Buffer i is bound, whole, at binding i, and accessed as `bindings` say; without them it is taken to be written. Any
  // group count of 0 records nothing.
  void dispatch(std::string_view name, std::span<const BufferRef> buffers, const void* pushData, size_t pushSize,
                uint32_t groupsX, uint32_t groupsY, uint32_t groupsZ, std::span<const kernels::Binding> bindings = {});
  // Enough groups for `count` items on a grid of two dimensions; see the kernels' item index.
  void dispatch1D(std::string_view name, std::span<const BufferRef> buffers, const void* pushData, size_t pushSize,
                  uint32_t count, std::span<const kernels::Binding> bindings = {});

  // The same with the buffers and the push block that the kernel declares; see kernel_interface.h. `variant` names a
  // kernel of the same interface to run instead.
  template <class K>
  void dispatch(const K& kernel, const typename K::Push& push, uint32_t groupsX, uint32_t groupsY, uint32_t groupsZ,
                std::string_view variant = K::kName) {
    dispatch(variant, kernel.buffers(), &push, sizeof push, groupsX, groupsY, groupsZ, K::kBindings);
  }
  template <class K>
  void dispatch1D(const K& kernel, const typename K::Push& push, uint32_t count, std::string_view variant = K::kName) {
    dispatch1D(variant, kernel.buffers(), &push, sizeof push, count, K::kBindings);
  }

  // Bytes; a size of 0 does nothing. fill rounds up to 4 and clamps to the buffer's end.
  void fill(const GpuBuffer& buffer, uint32_t value, uint64_t size = UINT64_MAX, uint64_t offset = 0);
  void copy(const GpuBuffer& src, const GpuBuffer& dst, uint64_t size, uint64_t srcOffset = 0, uint64_t dstOffset = 0);

  // Ends, submits and waits (at most 120 s). Does nothing when nothing was recorded.
  void submit();

  // Start of a named stretch of the recording, for profiling: while profiling is on, submit() adds the GPU time of each
  // stretch to a table by name. `stage` must live on (a literal). Of one recording 1023 stretches are told apart.
  // Without profiling mark() costs nothing; on a device without timestamps it submits what was recorded before, and the
  // host's clock is read. Profiling is switched between recordings only.
  void setProfiling(bool on);
  void setProfiling(StageTimer::Clock clock);
  void mark(const char* stage);
  using StageTime = quor::gs::StageTime;
  std::vector<StageTime> takeProfile() { return timer_.take(); }  // and starts over

  // The grid of groups (x, y) that covers `groups` groups on a device with these limits; throws when none can.
  static std::array<uint32_t, 2> grid1D(uint32_t groups, const std::array<uint32_t, 3>& limits, std::string_view name);

  // What was recorded so far, for benches and tests.
  struct Counts {
    uint64_t dispatches = 0, barriers = 0, submits = 0;
  };
  const Counts& counts() const { return counts_; }

  VulkanContext& context() { return context_; }
  KernelRegistry& registry() { return registry_; }

 private:
  struct Use {
    VkBuffer buffer;
    bool writes;
  };
  void begin();
  void barrier();
  // Before a command that uses these: a barrier where it must wait for one before it.
  void order(std::span<const Use> uses);
  VkDescriptorSet takeSet(const Kernel& kernel);
  void addPool();

  VulkanContext& context_;
  KernelRegistry& registry_;
  CommandBuffer commands_;
  std::vector<VkDescriptorPool> pools_;
  size_t poolIndex_ = 0;
  uint32_t setsInPool_ = 0;
  bool recording_ = false;
  std::vector<Use> unordered_;  // since the last barrier
  Counts counts_;
  StageTimer timer_;
};

}  // namespace quor::gs
