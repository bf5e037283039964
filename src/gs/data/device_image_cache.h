// The photographs at the size of the current level, ready for the GPU. When all of them fit their share of GPU memory
// they are resident there; otherwise they stay on the host, in memory or in a file, and each is uploaded ahead of its
// step.
#pragma once

#include <array>
#include <cstdint>
#include <future>
#include <memory>
#include <vector>

#include "gpu/compute/compute_stream.h"
#include "gpu/memory/gpu_buffer.h"
#include "gpu/memory/transfer.h"
#include "gs/data/dataset.h"
#include "gs/data/photograph_reader.h"

namespace quor::gs {

class DeviceImageCache {
 public:
  // `views` must outlive the cache. `gpuShare` is the most that resident photographs may take, in bytes; `scaledPool`
  // is for the smaller photographs of a level that are not resident.
  DeviceImageCache(VulkanContext& context, const std::vector<View>& views, uint64_t gpuShare,
                   HostImageCacheOptions scaledPool);

  // The most GPU bytes that a cache of these views takes at level `levels` and all finer ones.
  static uint64_t mostBytes(const std::vector<View>& views, uint64_t gpuShare, int levels);

  // Shrinks the photographs to 1 / 2^level on worker threads and uploads each at once if all fit. Does nothing and
  // returns false when that is the level already.
  bool setLevel(Transfer& transfer, int level);

  const Camera& camera(size_t view) const { return cameras_[view]; }
  bool resident() const { return resident_; }
  size_t count() const { return cameras_.size(); }

  // Starts to read a photograph into memory that the GPU can copy from, on another thread.
  void prefetch(size_t view);
  // Records the copy into the returned buffer, valid until the next submit. Throws when the photograph cannot be read.
  const GpuBuffer& fetch(ComputeStream& stream, size_t view);

 private:
  struct Place {
    size_t chunk;
    uint64_t offset;
  };
  struct Staging {
    GpuBuffer buffer;
    std::future<void> filled;
    size_t view = SIZE_MAX;

    void forget();
  };

  std::shared_ptr<const Image> scaled(size_t view, int level) const;
  uint64_t bytesOnGpu(size_t view) const;
  void makeResident(Transfer& transfer, int level, uint64_t chunkLimit);
  void stayOnHost(int level, uint64_t largest);

  VulkanContext& context_;
  const std::vector<View>& views_;
  uint64_t gpuShare_;
  HostImageCacheOptions scaledPool_;
  int level_ = -1;
  bool resident_ = false;
  std::vector<Camera> cameras_;
  std::vector<StoredImage> scaled_;  // empty at level 0, where the views themselves serve, and while resident
  std::vector<GpuBuffer> chunks_;
  std::vector<Place> places_;
  std::array<Staging, 2> staging_;
  size_t nextStaging_ = 0;
  GpuBuffer current_;
  PhotographReader reader_;  // last: it writes into the staging buffers until it is gone
};

}  // namespace quor::gs
