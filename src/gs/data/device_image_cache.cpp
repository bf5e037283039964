#include "gs/data/device_image_cache.h"

#include <algorithm>
#include <mutex>
#include <utility>

#include "base/parallel.h"
#include "gpu/device/vulkan_context.h"

namespace quor::gs {
namespace {

constexpr uint64_t kChunk = 64ull << 20;

// Packed, padded to whole words.
uint64_t packedBytes(const Camera& camera) {
  return (static_cast<uint64_t>(camera.width) * static_cast<uint64_t>(camera.height) * 3 + 3) / 4 * 4;
}

}  // namespace

DeviceImageCache::DeviceImageCache(VulkanContext& context, const std::vector<View>& views, uint64_t gpuShare,
                                   HostImageCacheOptions scaledPool)
    : context_(context),
      views_(views),
      gpuShare_(gpuShare),
      scaledPool_(std::move(scaledPool)),
      cameras_(views.size()),
      places_(views.size()) {}

uint64_t DeviceImageCache::mostBytes(const std::vector<View>& views, uint64_t gpuShare, int levels) {
  uint64_t resident = 0, largest = 0;
  for (int level = 0; level <= levels; ++level) {
    uint64_t total = 0;
    for (const View& view : views) {
      const uint64_t bytes = packedBytes(cameraAtLevel(view.camera, level));
      total += bytes;
      largest = std::max(largest, bytes);
    }
    if (total <= gpuShare) resident = std::max(resident, total);
  }
  return resident + largest;
}

std::shared_ptr<const Image> DeviceImageCache::scaled(size_t view, int level) const {
  std::shared_ptr<const Image> image = views_[view].image.pixels();
  if (level == 0) return image;
  return std::make_shared<const Image>(resizeImage(*image, cameras_[view].width, cameras_[view].height));
}

uint64_t DeviceImageCache::bytesOnGpu(size_t view) const {
  return packedBytes(cameras_[view]);
}

bool DeviceImageCache::setLevel(Transfer& transfer, int level) {
  if (level == level_) return false;
  for (Staging& staging : staging_) staging.forget();
  scaled_.clear();
  chunks_.clear();
  uint64_t total = 0, largest = 4;
  for (size_t i = 0; i < views_.size(); ++i) {
    cameras_[i] = cameraAtLevel(views_[i].camera, level);
    total += bytesOnGpu(i);
    largest = std::max(largest, bytesOnGpu(i));
  }
  if (current_.size() < largest) current_ = GpuBuffer(context_, largest, BufferKind::Device, "photograph");
  resident_ = total <= gpuShare_;
  if (resident_) {
    makeResident(transfer, level, std::min(std::max(kChunk, largest), context_.info().maxAllocationSize));
  } else {
    stayOnHost(level, largest);
  }
  level_ = level;
  return true;
}

void DeviceImageCache::makeResident(Transfer& transfer, int level, uint64_t chunkLimit) {
  std::vector<uint64_t> sizes;
  for (size_t i = 0; i < views_.size(); ++i) {
    const uint64_t bytes = bytesOnGpu(i);
    if (sizes.empty() || sizes.back() + bytes > chunkLimit) sizes.push_back(0);
    places_[i] = {sizes.size() - 1, sizes.back()};
    sizes.back() += bytes;
  }
  for (const uint64_t size : sizes) chunks_.emplace_back(context_, size, BufferKind::Device, "photographs");
  std::mutex transferMutex;
  parallelFor(views_.size(), [&](size_t i) {
    const std::shared_ptr<const Image> image = scaled(i, level);
    const std::lock_guard lock(transferMutex);
    transfer.upload(chunks_[places_[i].chunk], image->rgb.data(), places_[i].offset, image->rgb.size());
  });
}

void DeviceImageCache::stayOnHost(int level, uint64_t largest) {
  for (Staging& staging : staging_) {
    if (staging.buffer.size() >= largest) continue;
    staging.buffer = GpuBuffer(context_, largest, BufferKind::Upload, "photograph staging");
  }
  if (level == 0) return;
  HostImageCache pool(scaledPool_);
  scaled_.resize(views_.size());
  parallelFor(views_.size(), [&](size_t i) {
    const std::shared_ptr<const Image> image = views_[i].image.pixels();
    scaled_[i] = pool.store(resizeImage(*image, cameras_[i].width, cameras_[i].height));
  });
}

void DeviceImageCache::Staging::forget() {
  view = SIZE_MAX;
  // Its failure concerns nobody any more.
  if (filled.valid()) std::exchange(filled, {}).wait();
}

void DeviceImageCache::prefetch(size_t view) {
  if (resident_ || std::any_of(staging_.begin(), staging_.end(), [&](const Staging& s) { return s.view == view; }))
    return;
  Staging& staging = staging_[nextStaging_];
  nextStaging_ ^= 1;
  staging.forget();
  staging.filled = reader_.read(scaled_.empty() ? views_[view].image : scaled_[view],
                                static_cast<uint8_t*>(staging.buffer.mapped()));
  staging.view = view;
}

const GpuBuffer& DeviceImageCache::fetch(ComputeStream& stream, size_t view) {
  if (resident_) {
    stream.copy(chunks_[places_[view].chunk], current_, bytesOnGpu(view), places_[view].offset, 0);
    return current_;
  }
  prefetch(view);
  Staging& staging = staging_[0].view == view ? staging_[0] : staging_[1];
  if (staging.filled.valid()) {
    staging.view = SIZE_MAX;  // in case the read failed
    staging.filled.get();
    staging.view = view;
  }
  stream.copy(staging.buffer, current_, bytesOnGpu(view));
  return current_;
}

}  // namespace quor::gs
