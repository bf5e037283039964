#include "gs/photo_store.h"

#include <algorithm>
#include <cstring>

#include "base/parallel.h"
#include "gpu/vulkan_context.h"

namespace quor::gs {
namespace {

constexpr uint64_t kChunk = 64ull << 20;

uint64_t roundUp4(uint64_t bytes) {
  return (bytes + 3) / 4 * 4;
}

}  // namespace

PhotoStore::PhotoStore(VulkanContext& context, const std::vector<View>& views, uint64_t gpuShare)
    : context_(context), views_(views), gpuShare_(gpuShare), cameras_(views.size()), places_(views.size()) {}

const std::vector<uint8_t>& PhotoStore::pixels(size_t view) const {
  return scaled_.empty() ? views_[view].image.rgb : scaled_[view].rgb;
}

bool PhotoStore::setLevel(Transfer& transfer, int level) {
  if (level == level_) return false;
  level_ = level;
  for (Staging& staging : staging_) {
    if (staging.filled.valid()) staging.filled.get();
    staging.view = SIZE_MAX;
  }
  scaled_.clear();
  if (level > 0) {
    scaled_.resize(views_.size());
    parallelFor(views_.size(), [&](size_t i) {
      View view = viewAtLevel(views_[i], level);
      cameras_[i] = view.camera;
      scaled_[i] = std::move(view.image);
    });
  } else {
    for (size_t i = 0; i < views_.size(); ++i) cameras_[i] = views_[i].camera;
  }

  uint64_t total = 0, largest = 4;
  for (size_t i = 0; i < views_.size(); ++i) {
    total += roundUp4(pixels(i).size());
    largest = std::max<uint64_t>(largest, roundUp4(pixels(i).size()));
  }
  if (current_.size() < largest) current_ = GpuBuffer(context_, largest, BufferKind::Device, "photograph");
  chunks_.clear();
  resident_ = total <= gpuShare_;
  if (resident_) {
    makeResident(transfer, std::min(std::max(kChunk, largest), context_.info().maxAllocationSize));
    scaled_.clear();
    scaled_.shrink_to_fit();
  } else {
    for (Staging& staging : staging_) {
      if (staging.buffer.size() < largest) {
        staging.buffer = GpuBuffer(context_, largest, BufferKind::Upload, "photograph staging");
      }
    }
  }
  return true;
}

void PhotoStore::makeResident(Transfer& transfer, uint64_t chunkLimit) {
  std::vector<uint64_t> sizes;
  for (size_t i = 0; i < views_.size(); ++i) {
    const uint64_t bytes = roundUp4(pixels(i).size());
    if (sizes.empty() || sizes.back() + bytes > chunkLimit) sizes.push_back(0);
    places_[i] = {sizes.size() - 1, sizes.back()};
    sizes.back() += bytes;
  }
  for (const uint64_t size : sizes) chunks_.emplace_back(context_, size, BufferKind::Device, "photographs");
  for (size_t i = 0; i < views_.size(); ++i) {
    transfer.upload(chunks_[places_[i].chunk], pixels(i).data(), places_[i].offset, pixels(i).size());
  }
}

void PhotoStore::prefetch(size_t view) {
  if (resident_ || std::any_of(staging_.begin(), staging_.end(), [&](const Staging& s) { return s.view == view; }))
    return;
  Staging& staging = staging_[nextStaging_];
  nextStaging_ ^= 1;
  if (staging.filled.valid()) staging.filled.get();
  staging.view = view;
  staging.filled = std::async(std::launch::async, [this, &staging, view] {
    std::memcpy(staging.buffer.mapped(), pixels(view).data(), pixels(view).size());
  });
}

const GpuBuffer& PhotoStore::fetch(ComputeStream& stream, size_t view) {
  const uint64_t bytes =
      roundUp4(static_cast<uint64_t>(cameras_[view].width) * static_cast<uint64_t>(cameras_[view].height) * 3);
  if (resident_) {
    stream.copy(chunks_[places_[view].chunk], current_, bytes, places_[view].offset, 0);
    return current_;
  }
  prefetch(view);
  Staging& staging = staging_[0].view == view ? staging_[0] : staging_[1];
  if (staging.filled.valid()) staging.filled.get();
  stream.copy(staging.buffer, current_, bytes);
  return current_;
}

}  // namespace quor::gs
