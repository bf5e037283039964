#include "gs/splats/splat_snapshot.h"

#include <utility>

namespace quor::gs {

// A failure leaves no memory taken.
void SplatSnapshot::makeRoom(uint64_t splats) {
  room_ = 0;
  for (Buffers* array : {&values_, &firstMoments_, &secondMoments_}) *array = {};
  std::array<Buffers, 3> made;
  for (Buffers& array : made) {
    for (size_t g = 0; g < kGroupCount; ++g) {
      const uint64_t bytes = splats * kGroupWidths[g] * sizeof(float);
      array[g] = GpuBuffer(context_, bytes, BufferKind::Readback, "splat snapshot");
    }
  }
  values_ = std::move(made[0]);
  firstMoments_ = std::move(made[1]);
  secondMoments_ = std::move(made[2]);
  room_ = splats;
}

void SplatSnapshot::take(ComputeStream& stream, const SplatStore& splats) {
  if (splats.count() > room_) makeRoom(splats.count());
  for (size_t i = 0; i < kGroupCount; ++i) {
    const Group g = static_cast<Group>(i);
    const uint64_t bytes = splats.count() * kGroupWidths[g] * sizeof(float);
    stream.copy(splats.value(g), values_[g], bytes);
    stream.copy(splats.firstMoment(g), firstMoments_[g], bytes);
    stream.copy(splats.secondMoment(g), secondMoments_[g], bytes);
  }
  stream.submit();
  count_ = splats.count();
}

CheckpointArrays SplatSnapshot::arrays() const {
  CheckpointArrays arrays;
  for (size_t g = 0; g < kGroupCount; ++g) {
    const auto span = [&](const GpuBuffer& buffer) {
      return std::span(static_cast<const float*>(buffer.mapped()), count_ * kGroupWidths[g]);
    };
    arrays.values[g] = span(values_[g]);
    arrays.firstMoments[g] = span(firstMoments_[g]);
    arrays.secondMoments[g] = span(secondMoments_[g]);
  }
  return arrays;
}

}  // namespace quor::gs
