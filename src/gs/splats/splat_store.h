// The trainable splats on the GPU: the six parameter groups and, for training, their gradients and both Adam moments.
// Rows of all arrays stay in step: whatever adds, removes, copies or reorders splats does it through rearrange().
#pragma once

#include <array>
#include <cstdint>
#include <span>

#include "gpu/compute/compute_stream.h"
#include "gpu/memory/gpu_buffer.h"
#include "gpu/memory/transfer.h"
#include "gs/splats/gaussian_set.h"

namespace quor::gs {

// Where a row comes from: the index of an old row, with this bit set when its optimiser state starts afresh.
inline constexpr uint32_t kFreshRow = 0x80000000u;

class SplatStore {
 public:
  enum class Use { RenderOnly, Training };

  SplatStore(VulkanContext& context, Use use) : context_(&context), use_(use) {}

  // GPU bytes that one splat takes here when it is trained.
  static constexpr uint64_t kTrainingBytesPerSplat = 4 * kFloatsPerSplat * 4;

  // Replaces everything; the moments become zero. Makes room for at least `capacity` splats, and gives memory back when
  // that is less than half of what was there.
  void upload(Transfer& transfer, const GaussianSet& set, uint32_t capacity = 0);
  // Frees everything.
  void clear();

  // For a store that is only rendered: room for that many splats; growing loses the contents.
  void reserve(uint32_t capacity);
  // For a store that is only rendered: records a copy of all of `source`'s values to the rows from `at` on, for which
  // there must be room. The count becomes `at` plus the source's.
  void copyValues(ComputeStream& stream, const SplatStore& source, uint32_t at);

  // With the set's shDegree left at 3.
  GaussianSet download(Transfer& transfer) const;

  void uploadMoments(Transfer& transfer, const GroupArrays& first, const GroupArrays& second);
  void downloadMoments(Transfer& transfer, GroupArrays& first, GroupArrays& second) const;

  void clearMoments(Transfer& transfer, Group group);

  std::vector<float> downloadGroup(Transfer& transfer, Group group) const;
  void uploadGroup(Transfer& transfer, Group group, std::span<const float> values);

  // For training: room for that many splats. Keeps values and moments, also when it throws OutOfGpuMemory (the store
  // can then be downloaded but no longer trained); the gradients are lost.
  void grow(ComputeStream& stream, uint32_t capacity);
  // Row i of every array becomes row sources[i] of the old one; the count becomes sources.size(), for which there must
  // be room. Moments of rows marked fresh become zero. The values of the groups in `replaced` are undefined until the
  // caller uploads them. The gradients are lost.
  void rearrange(ComputeStream& stream, Transfer& transfer, std::span<const uint32_t> sources,
                 std::span<const Group> replaced = {});

  uint32_t count() const { return count_; }
  uint32_t capacity() const { return capacity_; }
  const GpuBuffer& value(Group g) const { return values_[g]; }
  const GpuBuffer& gradient(Group g) const { return gradients_[g]; }
  const GpuBuffer& firstMoment(Group g) const { return firstMoments_[g]; }
  const GpuBuffer& secondMoment(Group g) const { return secondMoments_[g]; }
  VulkanContext& context() const { return *context_; }

 private:
  using Buffers = std::array<GpuBuffer, kGroupCount>;

  void makeRoom(uint32_t capacity);
  GpuBuffer make(Group g, const char* what, uint32_t capacity) const;

  VulkanContext* context_;
  Use use_;
  uint32_t count_ = 0;
  uint32_t capacity_ = 0;
  Buffers values_, gradients_, firstMoments_, secondMoments_;
  GpuBuffer rows_;
};

}  // namespace quor::gs
