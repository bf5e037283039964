#include "gs/splats/splat_store.h"

#include <algorithm>
#include <stdexcept>
#include <string>
#include <utility>

#include "gpu/device/vulkan_context.h"
#include "gpu/kernels/interfaces.h"

namespace quor::gs {
namespace {

constexpr std::array<const char*, kGroupCount> kGroupNames = {"positions", "scales", "rotations",
                                                              "opacities", "sh_dc",  "sh_rest"};

uint64_t bytesOf(Group g, uint64_t rows) {
  return rows * kGroupWidths[g] * sizeof(float);
}

}  // namespace

GpuBuffer SplatStore::make(Group g, const char* what, uint32_t capacity) const {
  constexpr uint64_t kQuad = 4 * sizeof(float);  // kernels may take four values at a time
  const uint64_t bytes = (bytesOf(g, capacity) + kQuad - 1) / kQuad * kQuad;
  return GpuBuffer(*context_, bytes, BufferKind::Device, std::string(kGroupNames[g]) + what);
}

void SplatStore::makeRoom(uint32_t capacity) {
  if (capacity <= capacity_) return;
  capacity_ = 0;
  for (size_t i = 0; i < kGroupCount; ++i) {
    const Group g = static_cast<Group>(i);
    values_[g] = {};
    values_[g] = make(g, "", capacity);
    if (use_ == Use::RenderOnly) continue;
    gradients_[g] = make(g, " gradient", capacity);
    firstMoments_[g] = make(g, " m", capacity);
    secondMoments_[g] = make(g, " v", capacity);
  }
  capacity_ = capacity;
}

void SplatStore::clear() {
  count_ = 0;
  capacity_ = 0;
  for (Buffers* arrays : {&values_, &gradients_, &firstMoments_, &secondMoments_}) *arrays = {};
  rows_ = {};
}

void SplatStore::reserve(uint32_t capacity) {
  if (capacity <= capacity_) return;
  count_ = 0;
  makeRoom(capacity);
}

void SplatStore::copyValues(ComputeStream& stream, const SplatStore& source, uint32_t at) {
  for (size_t i = 0; i < kGroupCount; ++i) {
    const Group g = static_cast<Group>(i);
    stream.copy(source.values_[g], values_[g], bytesOf(g, source.count_), 0, bytesOf(g, at));
  }
  count_ = at + source.count_;
}

void SplatStore::upload(Transfer& transfer, const GaussianSet& set, uint32_t capacity) {
  if (set.count > UINT32_MAX / kGroupWidths[kShRest]) throw std::runtime_error("The scene holds too many splats.");
  const uint32_t count = static_cast<uint32_t>(set.count);
  const uint32_t room = std::max({capacity, count, 1u});
  if (capacity_ / 2 > room) clear();
  makeRoom(room);
  count_ = count;
  for (size_t i = 0; i < kGroupCount; ++i) {
    const Group g = static_cast<Group>(i);
    uploadGroup(transfer, g, set.group(g));
    if (use_ == Use::Training) clearMoments(transfer, g);
  }
}

std::vector<float> SplatStore::downloadGroup(Transfer& transfer, Group group) const {
  std::vector<float> values(count_ * kGroupWidths[group]);
  transfer.download(values_[group], values.data(), 0, bytesOf(group, count_));
  return values;
}

void SplatStore::uploadGroup(Transfer& transfer, Group group, std::span<const float> values) {
  transfer.upload(values_[group], values.data(), 0, bytesOf(group, count_));
}

GaussianSet SplatStore::download(Transfer& transfer) const {
  GaussianSet set;
  set.count = count_;
  for (size_t i = 0; i < kGroupCount; ++i) {
    const Group g = static_cast<Group>(i);
    set.group(g) = downloadGroup(transfer, g);
  }
  return set;
}

void SplatStore::uploadMoments(Transfer& transfer, const GroupArrays& first, const GroupArrays& second) {
  for (size_t i = 0; i < kGroupCount; ++i) {
    const Group g = static_cast<Group>(i);
    transfer.upload(firstMoments_[g], first[g].data(), 0, bytesOf(g, count_));
    transfer.upload(secondMoments_[g], second[g].data(), 0, bytesOf(g, count_));
  }
}

void SplatStore::clearMoments(Transfer& transfer, Group group) {
  transfer.fill(firstMoments_[group], 0, 0, bytesOf(group, count_));
  transfer.fill(secondMoments_[group], 0, 0, bytesOf(group, count_));
}

void SplatStore::downloadMoments(Transfer& transfer, GroupArrays& first, GroupArrays& second) const {
  for (size_t i = 0; i < kGroupCount; ++i) {
    const Group g = static_cast<Group>(i);
    first[g].resize(count_ * kGroupWidths[g]);
    second[g].resize(count_ * kGroupWidths[g]);
    transfer.download(firstMoments_[g], first[g].data(), 0, bytesOf(g, count_));
    transfer.download(secondMoments_[g], second[g].data(), 0, bytesOf(g, count_));
  }
}

void SplatStore::grow(ComputeStream& stream, uint32_t capacity) {
  if (capacity <= capacity_) return;
  for (size_t i = 0; i < kGroupCount; ++i) {
    const Group g = static_cast<Group>(i);
    gradients_[g] = {};  // makes way for the copies of its group
    for (auto& [array, what] : {std::pair(&values_[g], ""), {&firstMoments_[g], " m"}, {&secondMoments_[g], " v"}}) {
      GpuBuffer larger = make(g, what, capacity);
      stream.copy(*array, larger, bytesOf(g, count_));
      stream.submit();
      *array = std::move(larger);
    }
    gradients_[g] = make(g, " gradient", capacity);
  }
  capacity_ = capacity;
}

void SplatStore::rearrange(ComputeStream& stream, Transfer& transfer, std::span<const uint32_t> sources,
                           std::span<const Group> replaced) {
  if (sources.size() > capacity_) throw std::logic_error("SplatStore::rearrange beyond its room");
  const uint32_t rows = static_cast<uint32_t>(sources.size());
  if (rows_.size() < rows * sizeof(uint32_t)) {
    rows_ = GpuBuffer(*context_, capacity_ * sizeof(uint32_t), BufferKind::Device, "row sources");
  }
  transfer.upload(rows_, sources.data(), 0, rows * sizeof(uint32_t));

  // Gradients hold nothing worth keeping, so each group's gradient buffer is the target of a gather and then swaps
  // places with its source: no array is ever held twice.
  for (size_t i = 0; i < kGroupCount; ++i) {
    const Group g = static_cast<Group>(i);
    const uint32_t width = static_cast<uint32_t>(kGroupWidths[g]);
    const bool keepsValues = std::find(replaced.begin(), replaced.end(), g) == replaced.end();
    for (GpuBuffer* array : {&values_[g], &firstMoments_[g], &secondMoments_[g]}) {
      const bool isValues = array == &values_[g];
      if (isValues && !keepsValues) continue;
      stream.dispatch1D(kernels::GatherRows{.source = &rows_, .from = array, .to = &gradients_[g]},
                        {rows * width, width, isValues ? 0u : 1u}, rows * width);
      std::swap(*array, gradients_[g]);
    }
  }
  stream.submit();
  count_ = rows;
}

}  // namespace quor::gs
